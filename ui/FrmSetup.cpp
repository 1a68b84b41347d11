#include "ui/FrmSetup.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/Errors.h"
#include "app/Log.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "app/Text.h"
#include "operations/BackupSettings.h"
#include "store/Pervasive.h"
#include "ui/FrmToolsVisualisation.h"
#include "ui/QtOperationView.h"

namespace toverin::ui {

namespace {
const char* kOptionKey = "Software\\Brennick\\KV3_Toverin\\Option_";
}

FrmSetup::FrmSetup(QWidget* parent) : QDialog(parent) {
    setObjectName("FrmSetup");
    setWindowTitle("Options");
    auto* layout = new QVBoxLayout(this);
    auto* tabs = new QTabWidget(this);
    tabs->setObjectName("SftTabsSetup");

    auto* general = new QWidget(tabs);
    auto* gl = new QVBoxLayout(general);
    CheckForcerVeille = new QCheckBox("Forcer le lancement en mode veille", general);
    CheckForcerVeille->setObjectName("CheckForcerVeille");
    CheckForcerVeille->setChecked(
        Trim(GetRegValue(kHkeyCurrentUser, kOptionKey, "ForcerVeille", "0")) == "1");
    connect(CheckForcerVeille, &QCheckBox::toggled, this, [](bool on) {
        SetRegValue(kHkeyCurrentUser, kOptionKey, "ForcerVeille", on ? "1" : "0");
    });
    gl->addWidget(CheckForcerVeille);
    auto* reboot = new QCheckBox(
        QString::fromUtf8("Redémarrer l'ordinateur sur une erreur d'automation"), general);
    reboot->setObjectName("CheckRebootAutomation");
    reboot->setChecked(!RebootForbidden());
    connect(reboot, &QCheckBox::toggled, this, [](bool on) {
        SetRegValue(kHkeyCurrentUser, kOptionKey, "RebootErreurAutomation", on ? "1" : "0");
        RebootForbidden() = !on;
    });
    gl->addWidget(reboot);
    auto* lockVisualisation =
        new QCheckBox(QString::fromUtf8("(Dé)verrouiller utilitaires: Visualisation"), general);
    lockVisualisation->setObjectName("CheckVerrouillageVisualisation");
    lockVisualisation->setChecked(VisualisationLocked());
    connect(lockVisualisation, &QCheckBox::toggled, this,
            [](bool on) { SetVisualisationLocked(on); });
    gl->addWidget(lockVisualisation);
    gl->addWidget(new QLabel(
        "Versions du moteur Pervasive: " + QString::fromStdString(VersionsMoteur()), general));
    gl->addStretch();
    tabs->addTab(general, QString::fromUtf8("Général"));

    auto* bases = new QTabWidget(tabs);
    bases->setObjectName("SftTabsSetupBases");
    for (int b = 0; b < Site().baseCount; ++b)
        bases->addTab(BuildBasePage(b, bases), QString::fromStdString(Site().bases[b].label));
    tabs->addTab(bases, "Bases");

    auto* logPage = new QWidget(tabs);
    auto* ll = new QVBoxLayout(logPage);
    log_ = new QListWidget(logPage);
    log_->setObjectName("ListeLog");
    auto* refresh = new QPushButton(QString::fromUtf8("Actualiser"), logPage);
    connect(refresh, &QPushButton::clicked, this, &FrmSetup::RefreshLog);
    ll->addWidget(log_);
    ll->addWidget(refresh);
    tabs->addTab(logPage, "Journal");

    layout->addWidget(tabs);
    auto* buttons = new QDialogButtonBox(this);
    QPushButton* save = buttons->addButton("Enregistrer", QDialogButtonBox::ApplyRole);
    save->setObjectName("CommandEnregistrer");
    connect(save, &QPushButton::clicked, this, &FrmSetup::SaveBaseSettings);
    buttons->addButton("Fermer", QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
    resize(700, 500);
    RefreshLog();
}

QWidget* FrmSetup::BuildBasePage(int b, QWidget* parent) {
    BackupOptions o = LoadBackupOptions(b);
    auto* page = new QWidget(parent);
    auto* form = new QFormLayout(page);
    auto* data = new QLineEdit(QString::fromStdString(o.serverDataFolder), page);
    data->setObjectName(ControlName("TexteDossierDonnees", b));
    auto* local = new QLineEdit(QString::fromStdString(o.localBackupFolder), page);
    local->setObjectName(ControlName("TexteDossierDonneesLocal", b));
    form->addRow(QString::fromUtf8("Dossiers des données:"), data);
    form->addRow(QString::fromUtf8("Dossiers de sauvegarde local:"), local);
    for (int i = 0; i < 2; ++i) {
        auto* option = new QRadioButton(QString::fromUtf8(kOptionBackupCaptions[i]), page);
        option->setObjectName(ControlName("OptionBackup", b * 2 + i));
        option->setChecked(o.optionBackup == i);
        form->addRow(option);
    }
    auto* days = new QLineEdit(QString::fromStdString(o.historyDaysText), page);
    days->setObjectName(ControlName("TexteBackupNbJour", b));
    form->addRow(QString::fromUtf8("Nombre de jours d'historique à sauvegarder:"), days);
    auto* key = new QCheckBox(
        QString::fromUtf8("Saisir une clé en cas d'erreur lors du backup des données"), page);
    key->setObjectName(ControlName("CheckBkpErr", b));
    key->setChecked(o.keyOnError);
    form->addRow(key);
    return page;
}

void FrmSetup::SaveBaseSettings() {
    for (int b = 0; b < Site().baseCount; ++b) {
        BackupOptions o = LoadBackupOptions(b);
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteDossierDonnees", b)))
            o.serverDataFolder = w->text().toStdString();
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteDossierDonneesLocal", b)))
            o.localBackupFolder = w->text().toStdString();
        if (auto* w = findChild<QRadioButton*>(ControlName("OptionBackup", b * 2 + 1)))
            o.optionBackup = w->isChecked() ? 1 : 0;
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteBackupNbJour", b)))
            o.historyDaysText = w->text().toStdString();
        if (auto* w = findChild<QCheckBox*>(ControlName("CheckBkpErr", b)))
            o.keyOnError = w->isChecked();
        SaveBackupOptions(b, o);
    }
    TraceLog("FrmSetup: Settings saved");
}

void FrmSetup::RefreshLog() {
    log_->clear();
    for (const auto& line : RecentLogLines(2000)) log_->addItem(QString::fromStdString(line));
    log_->scrollToBottom();
}

}  // namespace toverin::ui
