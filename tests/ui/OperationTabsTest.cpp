#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTimer>

#include "app/EventPump.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/LongRun.h"
#include "app/Startup.h"
#include "operations/BackupSettings.h"
#include "operations/OperationState.h"
#include "operations/Scheduler.h"
#include "tests/operations/SiteFixture.h"
#include "tests/support/FtpTestServer.h"
#include "tests/ui/UiTestSupport.h"
#include "ui/ControlName.h"
#include "ui/FrmSetup.h"
#include "ui/FrmSysTray.h"
#include "ui/Frm_Main.h"
#include "ui/PlanningPages.h"
#include "ui/QtDialogs.h"
#include "ui/SingleInstance.h"

namespace toverin {
namespace {

using ui::ControlName;
using ui::Frm_Main;
using ui::MainTab;

class OperationTabs : public testing::SiteFixture {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetStartup();
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        MakeSite(2);
        for (int s = 1; s <= 2; ++s) {
            std::vector<std::string> songs;
            for (int n = 1; n <= 400; ++n) songs.push_back(Record(22, n));
            WriteFile(22, s, songs);
        }
        BackupOptions o = Options();
        o.files.fill(false);
        o.files[0] = o.files[22] = true;
        SaveBackupOptions(0, o);
        instance = std::make_unique<ui::SingleInstance>(
            QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
    }
    void TearDown() override {
        SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
        unsetenv("XDG_DATA_HOME");
    }
    template <class W>
    W* Control(Frm_Main& frm, const char* name, int index = 0) {
        W* w = frm.findChild<W*>(ControlName(name, index));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    // Closing waits half a second on the tick: let the fake clock move meanwhile.
    void Close(Frm_Main& frm, int mode) {
        clock->SetAutoAdvance(Milliseconds(50));
        frm.CloseWithMode(mode);
    }
    std::unique_ptr<ui::SingleInstance> instance;
};

TEST_F(OperationTabs, BackupButtonWithPauseAndStopDuringTheRun) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.resize(1100, 760);
    frm.show();
    auto* now = Control<QPushButton>(frm, "CommandBkpNow");
    auto* pause = Control<QPushButton>(frm, "CommandBkpPause");
    auto* stop = Control<QPushButton>(frm, "CommandBkpStop");
    auto* records = Control<QProgressBar>(frm, "ProgressBarBkpRecords");
    EXPECT_FALSE(pause->isEnabled());

    dialogs.QueueAnswer(MsgAnswer::No);   // not the whole history
    dialogs.QueueAnswer(MsgAnswer::Yes);  // yes, stop
    int calls = 0;
    bool sawPaused = false, sawProgress = false;
    std::string duringCaption;
    SetEventPump([&] {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        ++calls;
        if (calls == 5) {
            duringCaption = frm.windowTitle().toStdString();
            sawProgress = records->value() > 0 && stop->isEnabled();
            testing::SaveScreenshot(&frm, "backup_tab_during_run");
            pause->click();
        } else if (calls == 6) {
            sawPaused = pause->text() == "Resume" && Operations().paused[0];
            pause->click();  // resume
        } else if (calls == 12) {
            stop->click();
        }
    });
    now->click();
    SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });

    EXPECT_TRUE(sawProgress);
    EXPECT_TRUE(sawPaused);
    EXPECT_EQ(pause->text(), "Pause");
    EXPECT_EQ(duringCaption, "Kavella: Toverin - V 3.4.0 - Backup en cours de la base Radio Test");
    EXPECT_EQ(frm.windowTitle().toStdString(), "Radio Test - V 3.4.0 - Kavella: Toverin");
    EXPECT_FALSE(stop->isEnabled());
    EXPECT_FALSE(pause->isEnabled());
    EXPECT_EQ(records->value(), 0);
    EXPECT_FALSE(Control<QLineEdit>(frm, "TexteDureeBkp")->text().isEmpty());
    EXPECT_TRUE(Control<QLabel>(frm, "LabelBkpFichier")->text().isEmpty());
    EXPECT_TRUE(Control<QLineEdit>(frm, "TexteDatePrevBkp")->text().isEmpty())
        << "a stopped run is not a backup";
    EXPECT_EQ(dialogs.messages[1].text, "Voulez-vous stopper le backup des données ?");
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Start", ""), "0FF");
    testing::SaveScreenshot(&frm, "backup_tab_after_stop");

    // A whole run: the last-backup box and today's restore date are filled. While it runs, the
    // stopped run's end and duration are gone.
    dialogs.QueueAnswer(MsgAnswer::No);
    QString endDuring = "unseen", durationDuring = "unseen";
    SetEventPump([&] {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        if (endDuring != "unseen") return;
        endDuring = Control<QLineEdit>(frm, "TexteTimingFinBkp")->text();
        durationDuring = Control<QLineEdit>(frm, "TexteDureeBkp")->text();
    });
    now->click();
    SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
    EXPECT_EQ(endDuring, "");
    EXPECT_EQ(durationDuring, "");
    EXPECT_FALSE(Control<QLineEdit>(frm, "TexteTimingFinBkp")->text().isEmpty());
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDatePrevBkp")->text().toStdString(),
              "lundi 23 novembre 2026 10:00:00");
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteRestaurationDate", 0)->text().toStdString(),
              "lundi 23 novembre 2026 10:00:00");
    testing::SaveScreenshot(&frm, "backup_tab_after_run");
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Restauration));
    testing::SaveScreenshot(&frm, "restauration_tab");
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Creation));
    testing::SaveScreenshot(&frm, "creation_tab");
    Close(frm, ui::kFormCode);
}

TEST_F(OperationTabs, StartButtonsOfOtherTabsAreRefusedWhileABackupRuns) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    auto* now = Control<QPushButton>(frm, "CommandBkpNow");
    auto* restore = Control<QPushButton>(frm, "CommandRestoreNow");
    auto* create = Control<QPushButton>(frm, "CommandCreationNow");
    Control<QListWidget>(frm, "ListeCreationStation")->item(0)->setSelected(true);
    Control<QListWidget>(frm, "ListeRestaurationStation")->item(0)->setSelected(true);

    dialogs.QueueAnswer(MsgAnswer::No);  // not the whole history
    int calls = 0;
    SetEventPump([&] {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        if (++calls == 3) {
            create->click();
            restore->click();
            now->click();
        }
    });
    now->click();
    SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });

    ASSERT_EQ(dialogs.messages.size(), 4u);
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(dialogs.messages[i].icon, MsgIcon::Critical);
        EXPECT_EQ(dialogs.messages[i].text,
                  "Une autre opération est en cours : Backup de la base Radio Test.\r\n\r\n"
                  "Attendez la fin de cette opération avant d'en lancer une autre.");
    }
    std::string log = Log();
    EXPECT_EQ(log.find("Restore: Started"), std::string::npos);
    EXPECT_EQ(log.find("Create: File"), std::string::npos);
    EXPECT_EQ(log.find("Backup: Started", log.find("Backup: Started") + 1), std::string::npos);
    EXPECT_FALSE(LongRunUnderWay());
    Close(frm, ui::kFormCode);
}

TEST_F(OperationTabs, TheBackupTabSaysWhatTheLastNightsDid) {
    // The program was killed during last night's backup, and the backup before that is days old.
    const std::string serveur = dir.file("C/KV_Config/KV3_Toverin_Serveur.ini");
    EcritureIni(serveur, "Base_0", "Planning_Bkp_Actif", "1");
    EcritureIni(serveur, "Base_0", "Backup_Dernier_Debut", "23/11/2026 02:02:00");
    EcritureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Start", "ON");
    EcritureIni(dir.file("C/KV_Config/Bk_Sys.ini"), "Sauvegarde", "Date", "19/11/2026 02:04:00");
    ClearIncidents();
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.resize(1100, 760);
    frm.show();
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Start", ""), "0FF");
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Exclamation);
    EXPECT_NE(dialogs.messages[0].text.find(
                  "le dernier backup réussi date du jeudi 19 novembre 2026 02:04:00"),
              std::string::npos);
    EXPECT_EQ(Control<QLabel>(frm, "LabelBkpAge")->text().toStdString(),
              "Dernier backup réussi il y a 4 jours");
    EXPECT_EQ(Control<QLabel>(frm, "LabelBkpResultat")->text().left(12).toStdString(),
              "Interrompu :");
    testing::Pump(1200);  // the incident list refreshes every second
    EXPECT_GE(Control<QListWidget>(frm, "ListeIncidents")->count(), 2);
    testing::SaveScreenshot(&frm, "backup_tab_after_interrupted_night");

    // A run with a file that fails: shown as incomplete beside its date, the file named.
    std::filesystem::remove(DataPath(22, 2));
    dialogs.QueueAnswer(MsgAnswer::No);
    Control<QPushButton>(frm, "CommandBkpNow")->click();
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDatePrevBkp")->text().toStdString(),
              "lundi 23 novembre 2026 10:00:00 (incomplet)");
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteRestaurationDate", 0)->text().toStdString(),
              "lundi 23 novembre 2026 10:00:00 (incomplet)");
    EXPECT_EQ(Control<QLabel>(frm, "LabelBkpResultat")->text().toStdString(),
              "Incomplet : 1 fichier(s) en échec : FRADB22.bt6");
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDureeBkp")->text().toStdString(),
              "0 min 00 s (incomplet)");
    EXPECT_EQ(Control<QLabel>(frm, "LabelBkpAge")->text().toStdString(),
              "Dernier backup réussi il y a 0 minute");
    testing::SaveScreenshot(&frm, "backup_tab_after_incomplete_run");
    Close(frm, ui::kFormCode);
}

TEST_F(OperationTabs, QuitterDuringAPausedBackupStopsItThenUnloads) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    auto* pause = Control<QPushButton>(frm, "CommandBkpPause");
    dialogs.QueueAnswer(MsgAnswer::No);   // not the whole history
    dialogs.QueueAnswer(MsgAnswer::Yes);  // yes, quit
    int calls = 0;
    bool quitAsked = false;
    SetEventPump([&] {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        ++calls;
        if (calls == 4) pause->click();
        if (calls == 8 && Operations().paused[0]) {
            quitAsked = true;
            frm.MnuQuitter_Click();
        }
    });
    clock->SetAutoAdvance(Milliseconds(50));  // the unload's half-second wait
    Control<QPushButton>(frm, "CommandBkpNow")->click();
    SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
    ASSERT_TRUE(quitAsked);
    EXPECT_FALSE(frm.unloaded()) << "not while the run is on the stack";
    testing::Pump(300);
    EXPECT_TRUE(frm.unloaded());
    EXPECT_EQ(dialogs.messages[1].text, "Voulez-vous quitter le programme ?");
    EXPECT_EQ(dialogs.messages.size(), 2u) << "the stop is not asked again";
    const std::string log = Log();
    for (const char* line :
         {"Application closed by human action (Menu action)",
          "Backup: Stopped by the program's shutdown", "Backup: Summary: Stopped",
          "Form closed by code action", "---------- Form_Unload: Start"})
        EXPECT_NE(log.find(line), std::string::npos) << line;
    EXPECT_LT(log.find("Backup: Summary: Stopped"), log.find("---------- Form_Unload: Start"));
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Start", ""), "0FF");
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Pause", ""), "0FF");
}

// A shutdown (or a second start asking this one to quit) while a run waits on a question: the
// question gets its safe answer and the window unloads, rather than waiting for somebody.
TEST_F(OperationTabs, AShutdownDuringARunsQuestionAnswersItAndUnloads) {
    ui::QtDialogs qt;
    SetAppDialogs(&qt);
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    Control<QListWidget>(frm, "ListeCreationStation")->item(0)->setSelected(true);
    frm.BasePage(MainTab::Creation, 0)
        ->findChild<QListWidget*>(ControlName("ListeDesFichiers", 0))
        ->item(22)
        ->setSelected(true);
    int ticks = 0, askedAt = -1;
    bool stillWaiting = false;
    QTimer watcher;
    QObject::connect(&watcher, &QTimer::timeout, [&] {
        ++ticks;
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || !box->isVisible()) return;
        if (askedAt < 0) {
            askedAt = ticks;  // "... contient 400 enregistrements ... recréer à vide ?"
            frm.CloseWithMode(ui::kAppWindows);
        } else if (ticks - askedAt > 25) {
            stillWaiting = true;  // nobody answered it: answer, so that the test ends
            box->reject();
        }
    });
    watcher.start(20);
    clock->SetAutoAdvance(Milliseconds(50));  // the unload's half-second wait
    Control<QPushButton>(frm, "CommandCreationNow")->click();
    testing::Pump(400);
    watcher.stop();
    SetAppDialogs(&dialogs);
    EXPECT_GE(askedAt, 0);
    EXPECT_FALSE(stillWaiting) << "the question held the shutdown";
    EXPECT_TRUE(frm.unloaded());
    EXPECT_EQ(ReadAll(DataPath(22, 1)).size(), 400u) << "the safe answer keeps the file";
    EXPECT_NE(Log().find("Form closed because Windows is shutting down"), std::string::npos);
}

TEST_F(OperationTabs, TheAgeThatRaisesAnAlertIsSetInTheOptions) {
    EXPECT_EQ(LoadBackupOptions(0).staleDays, 2) << "two days unless the site says otherwise";
    ui::FrmSetup setup;
    auto* days = setup.findChild<QSpinBox*>(ControlName("TexteBkpAlerteJours", 0));
    ASSERT_NE(days, nullptr);
    EXPECT_EQ(days->value(), 2);
    days->setValue(4);
    setup.SaveBaseSettings();
    EXPECT_EQ(LoadBackupOptions(0).staleDays, 4);
}

// What the backup could not use is refused or asked about before anything is written, and a
// save that went through says so.
TEST_F(OperationTabs, OptionsAreCheckedBeforeTheyAreSaved) {
    const BackupOptions before = LoadBackupOptions(0);
    ui::FrmSetup setup;
    auto* days = setup.findChild<QLineEdit*>(ControlName("TexteBackupNbJour", 0));
    auto* data = setup.findChild<QLineEdit*>(ControlName("TexteDossierDonnees", 0));
    auto* save = setup.findChild<QPushButton*>("CommandEnregistrer");
    ASSERT_TRUE(days && data && save);
    const std::string elsewhere = dir.folder() + "elsewhere/";
    days->setText("abc");  // would quietly have meant five days of history
    data->setText(QString::fromStdString(elsewhere));
    save->click();
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Base Radio Test : le nombre de jours d'historique à sauvegarder doit être un "
              "nombre ('abc' n'en est pas un).\r\n\r\nLes options n'ont pas été enregistrées.");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_EQ(LoadBackupOptions(0).historyDaysText, before.historyDaysText);
    EXPECT_EQ(LoadBackupOptions(0).serverDataFolder, before.serverDataFolder);
    EXPECT_TRUE(setup.LabelEnregistrement->text().isEmpty());

    days->setText(" -12 ");
    dialogs.QueueAnswer(MsgAnswer::No);
    save->click();
    ASSERT_EQ(dialogs.messages.size(), 2u);
    EXPECT_EQ(dialogs.messages[1].text,
              "Base Radio Test : Dossier '" + elsewhere +
                  "' non trouvé.\r\n\r\nLe backup et la restauration de cette base échoueront "
                  "tant que ce dossier n'existe pas.\r\n\r\nEnregistrer quand même ?");
    EXPECT_EQ(LoadBackupOptions(0).serverDataFolder, before.serverDataFolder);
    EXPECT_TRUE(setup.LabelEnregistrement->text().isEmpty());

    dialogs.QueueAnswer(MsgAnswer::Yes);  // the share is mounted later
    save->click();
    EXPECT_EQ(LoadBackupOptions(0).serverDataFolder, elsewhere);
    EXPECT_EQ(HistoryDays(LoadBackupOptions(0).historyDaysText), 12);
    EXPECT_TRUE(
        setup.LabelEnregistrement->text().startsWith(QString::fromUtf8("Options enregistrées à ")));
    auto* tabs = setup.findChild<QTabWidget*>("SftTabsSetup");
    tabs->setCurrentIndex(1);  // the bases
    testing::SaveScreenshot(&setup, "options_saved");
}

// Closing the options with changes not saved asks first; No puts back what is saved, so that
// the window does not show them the next time as if they were the settings.
TEST_F(OperationTabs, ClosingTheOptionsWithUnsavedChangesAsks) {
    const std::string saved = LoadBackupOptions(0).historyDaysText;
    ui::FrmSetup setup;
    setup.show();
    auto* days = setup.findChild<QLineEdit*>(ControlName("TexteBackupNbJour", 0));
    ASSERT_NE(days, nullptr);
    auto type = [&](const QString& text) {  // as the keyboard does it
        days->setFocus();
        days->selectAll();
        for (QChar c : text) {
            QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
            QApplication::sendEvent(days, &press);
        }
    };
    setup.reject();  // nothing changed: closed without a word
    EXPECT_FALSE(setup.isVisible());
    EXPECT_TRUE(dialogs.messages.empty());

    setup.show();
    type("12");
    QPushButton* fermer = nullptr;
    for (QPushButton* b : setup.findChildren<QPushButton*>())
        if (b->text() == "Fermer") fermer = b;
    ASSERT_NE(fermer, nullptr);
    dialogs.QueueAnswer(MsgAnswer::Cancel);
    fermer->click();
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text, "Enregistrer les modifications des options ?");
    EXPECT_TRUE(setup.isVisible()) << "Annuler keeps the window and the change";
    EXPECT_EQ(days->text(), "12");

    dialogs.QueueAnswer(MsgAnswer::No);
    setup.reject();
    EXPECT_FALSE(setup.isVisible());
    EXPECT_EQ(days->text().toStdString(), saved) << "the saved value is back on screen";
    EXPECT_EQ(LoadBackupOptions(0).historyDaysText, saved);

    setup.show();
    type("14");
    setup.CheckDuplication[0]->click();  // the duplication grid counts as a change too
    dialogs.QueueAnswer(MsgAnswer::Yes);
    setup.reject();
    EXPECT_FALSE(setup.isVisible());
    EXPECT_EQ(LoadBackupOptions(0).historyDaysText, "14");
    EXPECT_FALSE(setup.modified());
}

// The options' FTP test against a real server on loopback: what the transfers would meet, in
// the user's words, and the account kept for the next time without its password.
TEST_F(OperationTabs, TheFtpPageTestsAConnectionAndSaysWhatFailed) {
    const std::filesystem::path root = dir.file("ftp-root");
    std::filesystem::create_directories(root / "Export");
    testing::WriteFile((root / "Export" / "FRADA22.bt6").string(), "0123456789");
    testing::FtpTestServer server{root};
    ASSERT_TRUE(server.ready());
    auto run = [](ui::FrmSetup& setup, const std::string& address, const std::string& password,
                  const std::string& folder) {
        setup.TexteFtpServeur->setText(QString::fromStdString(address));
        setup.TexteFtpUtilisateur->setText(testing::FtpTestServer::kUser);
        setup.TexteFtpMotDePasse->setText(QString::fromStdString(password));
        setup.TexteFtpDossier->setText(QString::fromStdString(folder));
        setup.findChild<QPushButton*>("CommandFtpTester")->click();
        return setup.LabelFtpResultat->text().toStdString();
    };
    {
        ui::FrmSetup setup;
        setup.CheckFtpPassif->setChecked(true);
        EXPECT_EQ(run(setup, "", "", ""), "Indiquez le serveur FTP.");
        EXPECT_EQ(run(setup, server.address(), server.password(), "Export"),
                  "Connexion réussie. Dossier /Export : 1 élément(s).");
        ASSERT_EQ(setup.ListeFtp->count(), 1);
        EXPECT_TRUE(setup.ListeFtp->item(0)->text().endsWith("FRADA22.bt6  (10 octets)"));
        auto* tabs = setup.findChild<QTabWidget*>("SftTabsSetup");
        tabs->setCurrentWidget(setup.TexteFtpServeur->parentWidget());
        testing::SaveScreenshot(&setup, "options_ftp_test");

        EXPECT_EQ(run(setup, server.address(), server.password(), "Import"),
                  "Connecté, mais le dossier 'Import' n'est pas accessible : refusé par le serveur "
                  "(dossier ou fichier absent, ou droits insuffisants).");
        EXPECT_EQ(setup.ListeFtp->count(), 0);
        EXPECT_EQ(run(setup, server.address(), "not-the-password", ""),
                  "Connexion impossible à " + server.address() +
                      " : identifiant ou mot de passe refusé.");
        const std::string nobody = "127.0.0.1:" + std::to_string(testing::UnusedLoopbackPort());
        EXPECT_EQ(
            run(setup, nobody, server.password(), ""),
            "Connexion impossible à " + nobody + " : aucun serveur FTP ne répond à cette adresse.");
        EXPECT_TRUE(dialogs.messages.empty()) << "said on the page, no box";
    }
    ui::FrmSetup again;
    EXPECT_TRUE(again.TexteFtpServeur->text().startsWith("127.0.0.1:"));
    EXPECT_EQ(again.TexteFtpUtilisateur->text(), testing::FtpTestServer::kUser);
    EXPECT_TRUE(again.TexteFtpMotDePasse->text().isEmpty());
    EXPECT_TRUE(again.CheckFtpPassif->isChecked());
    EXPECT_EQ(Log().find(server.password()), std::string::npos);
}

TEST_F(OperationTabs, PlansAreShownSavedAndAskedAboutAtShutdown) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.resize(1100, 760);
    frm.show();
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDateProchainBackup")->text().toStdString(),
              "Non planifié");
    EXPECT_TRUE(Control<QCheckBox>(frm, "CheckBkpActive", 6)->isChecked()) << "the default plan";
    EXPECT_FALSE(Control<QCheckBox>(frm, "CheckBkpActive", 7)->isChecked());
    EXPECT_EQ(Control<QComboBox>(frm, "ComboBkpMinute", 1)->currentText(), "02") << "row 2";

    Control<QCheckBox>(frm, "CheckBackupActiver")->setChecked(true);
    Control<QComboBox>(frm, "ComboBkpHeure", 0)->setCurrentIndex(23);
    EXPECT_TRUE(Startup().planningModified[0]);
    Control<QPushButton>(frm, "CommandBkpEnregistrer")->click();
    EXPECT_FALSE(Startup().planningModified[0]);
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDateProchainBackup")->text().toStdString(),
              "lundi 23 novembre 2026 23:02");
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/KV3_Toverin_Serveur.ini"), "Base_0",
                         "Planning_Bkp_Actif", ""),
              "1");
    testing::SaveScreenshot(&frm, "backup_tab_plan");
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Export));
    testing::SaveScreenshot(&frm, "export_tab");
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Import));
    testing::SaveScreenshot(&frm, "import_tab");

    Control<QComboBox>(frm, "ComboImportNature")->setCurrentIndex(1);
    ASSERT_TRUE(Startup().planningModified[0]);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    Close(frm, ui::kFormControlMenu);
    EXPECT_EQ(dialogs.messages.back().text,
              "Voulez-vous enregistrer les changements apportés au planning des Backups ?");
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/KV3_Toverin_Serveur.ini"), "Base_0",
                         "Planning_Import_Nature", ""),
              "1");
}

// A stored nature is shown as it is and saved back as it was, whatever its list index; one this
// program does not know keeps its number.
TEST_F(OperationTabs, NaturesAreShownAndSavedBackUnchanged) {
    const std::string ini = dir.file("C/KV_Config/KV3_Toverin_Serveur.ini");
    testing::WriteFile(ini,
                       "[Base_0]\r\nPlanning_Export=1000300\r\nPlanning_Export_Actif=1\r\n"
                       "Planning_Export_Nature=1\r\nPlanning_Import=1000310\r\n"
                       "Planning_Import_Actif=1\r\nPlanning_Import_Nature=2\r\n");
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.resize(1100, 760);
    frm.show();
    QComboBox* exportNature = Control<QComboBox>(frm, "ComboExportNature");
    QComboBox* importNature = Control<QComboBox>(frm, "ComboImportNature");
    EXPECT_EQ(exportNature->count(), 3);
    EXPECT_EQ(exportNature->currentIndex(), 1);
    EXPECT_EQ(exportNature->currentText().toStdString(), kExportNatures[1]);
    EXPECT_EQ(importNature->currentIndex(), 2);
    EXPECT_EQ(importNature->currentText().toStdString(), "Import NinSight");
    // Nothing here runs them: the tabs say so instead of showing a date.
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDateProchainExport")->text().toStdString(),
              NatureUnavailableText(kExportNatures[1]));
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteDateProchainImport")->text().toStdString(),
              "Non disponible dans ce programme: Import NinSight");
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Export));
    testing::SaveScreenshot(&frm, "export_natures");
    exportNature->showPopup();
    testing::Pump(100);
    testing::SaveScreenshot(exportNature->view()->window(), "export_natures_list");
    exportNature->hidePopup();
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Import));
    testing::SaveScreenshot(&frm, "import_natures");
    importNature->showPopup();
    testing::Pump(100);
    testing::SaveScreenshot(importNature->view()->window(), "import_natures_list");
    importNature->hidePopup();

    // Saved with another change: the natures come back as they were.
    Control<QComboBox>(frm, "ComboExportMinute", 0)->setCurrentIndex(5);
    Control<QPushButton>(frm, "CommandExportEnregistrer")->click();
    EXPECT_EQ(LectureIni(ini, "Base_0", "Planning_Export_Nature", ""), "1");
    EXPECT_EQ(LectureIni(ini, "Base_0", "Planning_Import_Nature", ""), "2");
    EXPECT_EQ(LectureIni(ini, "Base_0", "Planning_Export", "").substr(0, 7), "1000305");
    Close(frm, ui::kFormCode);

    // A nature written by a newer program.
    testing::WriteFile(ini, "[Base_0]\r\nPlanning_Import_Nature=5\r\n");
    ResetStartup();
    Frm_Main again(instance.get());
    ASSERT_TRUE(again.Form_Load());
    importNature = Control<QComboBox>(again, "ComboImportNature");
    EXPECT_EQ(importNature->currentText().toStdString(), "Nature 5");
    Control<QPushButton>(again, "CommandImportEnregistrer")->click();
    EXPECT_EQ(LectureIni(ini, "Base_0", "Planning_Import_Nature", ""), "5");
    Close(again, ui::kFormCode);
}

// With no tray (offscreen, as on GNOME) standby puts the window in the task bar; "Afficher" of the
// tray's menu, or the window itself, brings it back.
TEST_F(OperationTabs, StandbyWithoutATrayMinimisesAndTheWindowComesBack) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    frm.CommandMiseEnVeille_Click();
    EXPECT_TRUE(frm.isVisible());
    EXPECT_TRUE(frm.isMinimized());
    EXPECT_TRUE(Startup().standby);
    frm.tray()->MnuAfficher->trigger();
    testing::Pump(100);
    EXPECT_TRUE(frm.isVisible());
    EXPECT_FALSE(frm.isMinimized());
    EXPECT_FALSE(Startup().standby);
    EXPECT_NE(Log().find("Standby: End"), std::string::npos);
    // The tooltip names every base with its last and next backups.
    EXPECT_NE(frm.tray()->toolTip().toStdString().find("Radio Test: dernier backup aucun, prochain "
                                                       "non planifié"),
              std::string::npos)
        << frm.tray()->toolTip().toStdString();
    Close(frm, ui::kFormCode);
}

}  // namespace
}  // namespace toverin
