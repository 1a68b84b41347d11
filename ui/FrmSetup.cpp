#include "ui/FrmSetup.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/FileOps.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "app/Text.h"
#include "net/Ftp.h"
#include "operations/BackupSettings.h"
#include "store/Pervasive.h"
#include "ui/ControlName.h"
#include "ui/FrmToolsVisualisation.h"
#include "ui/Widgets.h"

namespace toverin::ui {

namespace {
const char* kOptionKey = "Software\\Brennick\\KV3_Toverin\\Option_";
}

FrmSetup::FrmSetup(QWidget* parent) : QDialog(parent) {
    setObjectName("FrmSetup");
    setWindowTitle("Options");
    auto* layout = new QVBoxLayout(this);
    auto* tabs = tabs_ = new QTabWidget(this);
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
    SftTabsDuplication = BuildDuplicationPage(tabs);
    tabs->addTab(SftTabsDuplication, "Duplication");

    tabs->addTab(BuildFtpPage(tabs), "FTP");

    auto* logPage = logPage_ = new QWidget(tabs);
    auto* ll = new QVBoxLayout(logPage);
    log_ = new QListWidget(logPage);
    log_->setObjectName("ListeLog");
    auto* refresh = new QPushButton(QString::fromUtf8("Actualiser"), logPage);
    connect(refresh, &QPushButton::clicked, this, &FrmSetup::RefreshLog);
    ll->addWidget(log_);
    ll->addWidget(refresh);
    tabs->addTab(logPage, "Journal");

    layout->addWidget(tabs);
    auto* bottom = new QHBoxLayout();
    // Said beside the buttons: a save that shows nothing reads as a button that does nothing.
    LabelEnregistrement = new QLabel(this);
    LabelEnregistrement->setObjectName("LabelEnregistrement");
    bottom->addWidget(LabelEnregistrement, 1);
    auto* buttons = new QDialogButtonBox(this);
    QPushButton* save = buttons->addButton("Enregistrer", QDialogButtonBox::ApplyRole);
    save->setObjectName("CommandEnregistrer");
    connect(save, &QPushButton::clicked, this, &FrmSetup::CommandEnregistrer_Click);
    buttons->addButton("Fermer", QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &FrmSetup::reject);
    bottom->addWidget(buttons);
    layout->addLayout(bottom);
    resize(700, 500);
    ShowSavedSettings();
    RefreshLog();
}

QWidget* FrmSetup::BuildBasePage(int b, QWidget* parent) {
    auto* page = new QWidget(parent);
    auto* form = new QFormLayout(page);
    auto* data = new QLineEdit(page);
    data->setObjectName(ControlName("TexteDossierDonnees", b));
    auto* local = new QLineEdit(page);
    local->setObjectName(ControlName("TexteDossierDonneesLocal", b));
    form->addRow(QString::fromUtf8("Dossiers des données:"), data);
    form->addRow(QString::fromUtf8("Dossiers de sauvegarde local:"), local);
    for (int i = 0; i < 2; ++i) {
        auto* option = new QRadioButton(QString::fromUtf8(kOptionBackupCaptions[i]), page);
        option->setObjectName(ControlName("OptionBackup", b * 2 + i));
        connect(option, &QRadioButton::toggled, this, &FrmSetup::MarkModified);
        form->addRow(option);
    }
    auto* days = new QLineEdit(page);
    days->setObjectName(ControlName("TexteBackupNbJour", b));
    form->addRow(QString::fromUtf8("Nombre de jours d'historique à sauvegarder:"), days);
    auto* key = new QCheckBox(
        QString::fromUtf8("Saisir une clé en cas d'erreur lors du backup des données"), page);
    key->setObjectName(ControlName("CheckBkpErr", b));
    form->addRow(key);
    auto* stale = new QSpinBox(page);
    stale->setObjectName(ControlName("TexteBkpAlerteJours", b));
    stale->setRange(1, 60);
    stale->setSuffix(" jour(s)");
    form->addRow(QString::fromUtf8("Alerte quand le dernier backup réussi a plus de:"), stale);
    // Any change of the text, however it came; what ShowSavedSettings puts there is none.
    for (QLineEdit* box : {data, local, days})
        connect(box, &QLineEdit::textChanged, this, &FrmSetup::MarkModified);
    connect(key, &QCheckBox::toggled, this, &FrmSetup::MarkModified);
    connect(stale, &QSpinBox::valueChanged, this, &FrmSetup::MarkModified);
    return page;
}

void FrmSetup::ShowSavedSettings() {
    showingSaved_ = true;
    for (int b = 0; b < Site().baseCount; ++b) {
        const BackupOptions o = LoadBackupOptions(b);
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteDossierDonnees", b)))
            w->setText(Q(o.serverDataFolder));
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteDossierDonneesLocal", b)))
            w->setText(Q(o.localBackupFolder));
        if (auto* w = findChild<QRadioButton*>(ControlName("OptionBackup", b * 2 + o.optionBackup)))
            w->setChecked(true);
        if (auto* w = findChild<QLineEdit*>(ControlName("TexteBackupNbJour", b)))
            w->setText(Q(o.historyDaysText));
        if (auto* w = findChild<QCheckBox*>(ControlName("CheckBkpErr", b)))
            w->setChecked(o.keyOnError);
        if (auto* w = findChild<QSpinBox*>(ControlName("TexteBkpAlerteJours", b)))
            w->setValue(o.staleDays);
    }
    showingSaved_ = false;
    InitSettingsDuplication(duplicationGrid_);
    ShowDuplicationStation();
    modified_ = false;
}

void FrmSetup::MarkModified() {
    if (!showingSaved_) modified_ = true;
}

// "Fermer", the window's close button and Escape: changes not saved are not left on screen as if
// they were, to be taken for the settings the next time the window is opened.
void FrmSetup::reject() {
    if (modified_) {
        const MsgAnswer answer =
            AffMsg("Enregistrer les modifications des options ?", MsgButtons::YesNoCancel,
                   MsgIcon::Question, "", MsgAnswer::No);
        if (answer == MsgAnswer::Cancel) return;
        if (answer == MsgAnswer::Yes) {
            CommandEnregistrer_Click();
            if (modified_) return;  // refused: the window stays, with the reason said
        } else {
            ShowSavedSettings();
        }
    }
    QDialog::reject();
}

bool FrmSetup::SaveBaseSettings() {
    // Every base is checked before any is written: a refusal leaves the settings as they were.
    std::vector<BackupOptions> all;
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
        if (auto* w = findChild<QSpinBox*>(ControlName("TexteBkpAlerteJours", b)))
            o.staleDays = w->value();
        const std::string& label = Site().bases[static_cast<size_t>(b)].label;
        if (!HistoryDaysReadable(o.historyDaysText)) {
            AffMsg("Base " + label +
                       " : le nombre de jours d'historique à sauvegarder doit être un nombre ('" +
                       o.historyDaysText +
                       "' n'en est pas un).\r\n\r\nLes options n'ont pas été "
                       "enregistrées.",
                   MsgButtons::Ok, MsgIcon::Critical);
            return false;
        }
        const std::string data = NormaliseFolder(Trim(o.serverDataFolder));
        if (!data.empty() && !FolderExists(data) &&
            AffMsg("Base " + label + " : " + GestErr_Fra(OwnError::FolderNotFound, data) +
                       ".\r\n\r\nLe backup et la restauration de cette base échoueront tant que "
                       "ce dossier n'existe pas.\r\n\r\nEnregistrer quand même ?",
                   MsgButtons::YesNo, MsgIcon::Question, "", MsgAnswer::No) != MsgAnswer::Yes)
            return false;
        all.push_back(o);
    }
    for (int b = 0; b < static_cast<int>(all.size()); ++b)
        SaveBackupOptions(b, all[static_cast<size_t>(b)]);
    TraceLog("FrmSetup: Settings saved");
    return true;
}

void FrmSetup::CommandEnregistrer_Click() {
    LabelEnregistrement->clear();
    if (!SaveBaseSettings() || !SaveDuplicationGrid()) return;
    modified_ = false;
    LabelEnregistrement->setText(QString::fromUtf8("Options enregistrées à ") +
                                 QString::fromStdString(FormatTime(AppClock().Now())));
}

QWidget* FrmSetup::BuildFtpPage(QWidget* parent) {
    auto* page = new QWidget(parent);
    auto* layout = new QVBoxLayout(page);
    auto* form = new QFormLayout();
    auto field = [&](const char* name, const char* key, const QString& label) {
        auto* box = new QLineEdit(Q(GetRegValue(kHkeyCurrentUser, kOptionKey, key, "")), page);
        box->setObjectName(name);
        form->addRow(label, box);
        return box;
    };
    TexteFtpServeur = field("TexteFtpServeur", "FTP_Serveur", "Serveur (nom ou nom:port):");
    TexteFtpUtilisateur = field("TexteFtpUtilisateur", "FTP_Utilisateur", "Utilisateur:");
    // The password is typed for each test: it is kept nowhere.
    TexteFtpMotDePasse = new QLineEdit(page);
    TexteFtpMotDePasse->setObjectName("TexteFtpMotDePasse");
    TexteFtpMotDePasse->setEchoMode(QLineEdit::Password);
    form->addRow("Mot de passe:", TexteFtpMotDePasse);
    TexteFtpDossier = field("TexteFtpDossier", "FTP_Dossier", "Dossier (facultatif):");
    CheckFtpPassif = new QCheckBox("Mode passif (derrière un pare-feu)", page);
    CheckFtpPassif->setObjectName("CheckFtpPassif");
    CheckFtpPassif->setChecked(GetRegValue(kHkeyCurrentUser, kOptionKey, "FTP_Passif", "0") == "1");
    form->addRow(CheckFtpPassif);
    layout->addLayout(form);
    auto* row = new QHBoxLayout();
    auto* test = new QPushButton("Tester la connexion", page);
    test->setObjectName("CommandFtpTester");
    connect(test, &QPushButton::clicked, this, &FrmSetup::CommandFtpTester_Click);
    row->addWidget(test);
    row->addStretch();
    layout->addLayout(row);
    LabelFtpResultat = new QLabel(page);
    LabelFtpResultat->setObjectName("LabelFtpResultat");
    LabelFtpResultat->setWordWrap(true);
    layout->addWidget(LabelFtpResultat);
    ListeFtp = new QListWidget(page);
    ListeFtp->setObjectName("ListeFtp");
    layout->addWidget(ListeFtp, 1);
    return page;
}

// Connects with the program's own FTP client, goes to the folder and lists it: what the transfers
// will meet, said in the user's words (the log keeps the client's own lines).
void FrmSetup::CommandFtpTester_Click() {
    const std::string server = Trim(TexteFtpServeur->text().toStdString());
    const std::string user = Trim(TexteFtpUtilisateur->text().toStdString());
    const std::string folder = Trim(TexteFtpDossier->text().toStdString());
    ListeFtp->clear();
    if (server.empty()) {
        LabelFtpResultat->setText("Indiquez le serveur FTP.");
        return;
    }
    SetRegValue(kHkeyCurrentUser, kOptionKey, "FTP_Serveur", server);
    SetRegValue(kHkeyCurrentUser, kOptionKey, "FTP_Utilisateur", user);
    SetRegValue(kHkeyCurrentUser, kOptionKey, "FTP_Dossier", folder);
    SetRegValue(kHkeyCurrentUser, kOptionKey, "FTP_Passif",
                CheckFtpPassif->isChecked() ? "1" : "0");
    LabelFtpResultat->setText("Connexion en cours...");
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QApplication::processEvents();
    cFTP ftp;
    ftp.SetTimeouts(std::chrono::seconds(10), std::chrono::seconds(30));
    if (CheckFtpPassif->isChecked()) ftp.SetModePassive();
    std::string result;
    if (!ftp.OpenConnection(server, user, TexteFtpMotDePasse->text().toStdString())) {
        result = "Connexion impossible à " + server + " : " +
                 FtpFailureText(ftp.GetLastErrorNumber()) + ".";
    } else if (!folder.empty() && !ftp.SetFTPDirectory(folder)) {
        result = "Connecté, mais le dossier '" + folder +
                 "' n'est pas accessible : " + FtpFailureText(ftp.GetLastErrorNumber()) + ".";
    } else {
        const std::vector<FtpDirEntry> entries = ftp.GetDirectoryListing();
        if (entries.empty() && !ftp.GetLastErrorMessage().empty()) {
            result = "Connecté, mais la liste du dossier a échoué : " +
                     FtpFailureText(ftp.GetLastErrorNumber()) + ".";
        } else {
            result = "Connexion réussie. Dossier " + ftp.GetFTPDirectory() + " : " +
                     std::to_string(entries.size()) + " élément(s).";
            for (const FtpDirEntry& e : entries)
                ListeFtp->addItem(
                    Q(FormatDateTime(e.date) + "  " + e.name +
                      (e.isDirectory ? "/" : "  (" + std::to_string(e.size) + " octets)")));
        }
    }
    ftp.CloseConnection();
    QApplication::restoreOverrideCursor();
    TraceLog("FrmSetup: FTP test: " + server + ": " + result);
    LabelFtpResultat->setText(Q(result));
}

QWidget* FrmSetup::BuildDuplicationPage(QWidget* parent) {
    auto* page = new QWidget(parent);
    page->setObjectName("SftTabsDuplication");
    auto* layout = new QVBoxLayout(page);
    auto* top = new QHBoxLayout();
    top->addWidget(new QLabel("Station", page));
    ComboDuplicationStation = new QComboBox(page);
    ComboDuplicationStation->setObjectName("ComboDuplicationStation");
    const BaseConfig& base = Site().bases[static_cast<size_t>(std::max(0, Site().currentBase - 1))];
    for (int s = 1; s <= kMaxStations; ++s) {
        ComboDuplicationStation->addItem(
            QString::fromStdString(s <= static_cast<int>(base.stations.size())
                                       ? base.stations[static_cast<size_t>(s - 1)].label
                                       : DefaultStationLabel(s)));
    }
    top->addWidget(ComboDuplicationStation);
    top->addStretch();
    layout->addLayout(top);
    layout->addWidget(new QLabel(
        QString::fromUtf8("Heures où la duplication du conducteur musical peut vider et remplir "
                          "la station cible:"),
        page));

    auto* grid = new QGridLayout();
    grid->setHorizontalSpacing(2);
    grid->setVerticalSpacing(2);
    for (int h = 0; h < kGridHours; ++h)
        grid->addWidget(new QLabel(QString::fromStdString(ZeroPad(h, 2)), page), 0, h + 1,
                        Qt::AlignCenter);
    for (int day = 1; day <= kGridWeekdays; ++day) {
        grid->addWidget(new QLabel(QString::fromStdString(DayName(day)), page), day, 0);
        for (int h = 0; h < kGridHours; ++h) {
            const int index = DuplicationGrid::CellIndex(day, h);
            auto* box = new QCheckBox(page);
            box->setObjectName(QString("CheckDuplication_%1").arg(index));
            box->setToolTip(QString::fromStdString(DayName(day) + " " + ZeroPad(h, 2) + "H"));
            connect(box, &QCheckBox::toggled, this,
                    [this, index] { CheckDuplication_Click(index); });
            CheckDuplication[static_cast<size_t>(index)] = box;
            grid->addWidget(box, day, h + 1, Qt::AlignCenter);
        }
    }
    layout->addLayout(grid);
    auto* buttons = new QHBoxLayout();
    const char* captions[] = {"Tout cocher", "Tout décocher"};
    for (int i = 0; i < 2; ++i) {
        auto* button = new QPushButton(QString::fromUtf8(captions[i]), page);
        button->setObjectName(QString("CommandDuplication_%1").arg(i));
        connect(button, &QPushButton::clicked, this, [this, i] { CommandDuplication_Click(i); });
        CommandDuplication[static_cast<size_t>(i)] = button;
        buttons->addWidget(button);
    }
    buttons->addStretch();
    layout->addLayout(buttons);
    layout->addStretch();
    connect(ComboDuplicationStation, &QComboBox::currentIndexChanged, this,
            &FrmSetup::ShowDuplicationStation);
    return page;
}

int FrmSetup::DuplicationStation() const {
    return ComboDuplicationStation->currentIndex() + 1;
}

void FrmSetup::ShowDuplicationStation() {
    showingSaved_ = true;
    for (int i = 0; i < kGridCells; ++i)
        CheckDuplication[static_cast<size_t>(i)]->setChecked(
            duplicationGrid_.Cell(0, DuplicationStation(), i));
    showingSaved_ = false;
}

void FrmSetup::CheckDuplication_Click(int index) {
    if (showingSaved_) return;
    modified_ = true;
    // The same sections serve every base: the grid is kept for all of them at once.
    const bool allowed = CheckDuplication[static_cast<size_t>(index)]->isChecked();
    for (int base = 0; base < kMaxBases; ++base)
        duplicationGrid_.SetCell(base, DuplicationStation(), index, allowed);
}

void FrmSetup::CommandDuplication_Click(int index) {
    modified_ = true;
    for (int base = 0; base < kMaxBases; ++base)
        duplicationGrid_.SetAll(base, DuplicationStation(), index == 0);
    ShowDuplicationStation();
}

bool FrmSetup::SaveDuplicationGrid() {
    return SaveSettingsDuplication(duplicationGrid_, 0);
}

void FrmSetup::ShowLogPage() {
    tabs_->setCurrentWidget(logPage_);
    RefreshLog();
}

// The day's log file as it stands (earlier runs of the day, last night's backup), else what this
// run has logged when the file cannot be read.
void FrmSetup::RefreshLog() {
    constexpr size_t kShownLines = 2000;
    TraceLogForce();
    const std::string text = ReadWholeFile(LogFilePath(AppClock().Now()));
    std::vector<std::string_view> lines = SplitLines(text);
    log_->clear();
    if (lines.empty()) {
        for (const auto& line : RecentLogLines(kShownLines)) log_->addItem(Q(line));
    } else {
        const size_t first = lines.size() > kShownLines ? lines.size() - kShownLines : 0;
        for (size_t i = first; i < lines.size(); ++i)
            log_->addItem(
                QString::fromUtf8(lines[i].data(), static_cast<qsizetype>(lines[i].size())));
    }
    log_->scrollToBottom();
}

}  // namespace toverin::ui
