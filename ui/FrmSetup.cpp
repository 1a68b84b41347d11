#include "ui/FrmSetup.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/Log.h"
#include "app/Registry.h"
#include "app/Text.h"

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
    gl->addStretch();
    tabs->addTab(general, QString::fromUtf8("Général"));

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
    buttons->addButton("Fermer", QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
    resize(700, 500);
    RefreshLog();
}

void FrmSetup::RefreshLog() {
    log_->clear();
    for (const auto& line : RecentLogLines(2000)) log_->addItem(QString::fromStdString(line));
    log_->scrollToBottom();
}

}  // namespace toverin::ui
