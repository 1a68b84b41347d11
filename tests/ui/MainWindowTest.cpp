#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QFileInfo>
#include <QListWidget>
#include <QMenuBar>
#include <QPushButton>
#include <QTabWidget>
#include <filesystem>
#include <stdexcept>

#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/UiTestSupport.h"
#include "ui/ControlName.h"
#include "ui/FrmSetup.h"
#include "ui/Frm_Main.h"
#include "ui/SingleInstance.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::ScopedLogAndRegistry;
using testing::ScriptedDialogs;
using testing::TempDir;
using testing::WriteFile;
using ui::Frm_Main;
using ui::MainTab;
using ui::SingleInstance;

// A site of two bases whose databases are present.
class MainWindow : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetStartup();
        ResetSite();
        ClearDriveTable();
        SetSuiteRoot(dir.folder());
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        WriteFile(dir.file("Settings/KV3_Config.ini"),
                  "[Site]\r\nLib=Kavella Test\r\nNbBase=2\r\nNoBase=1\r\n"
                  "[Base_01]\r\nLib=Radio "
                  "Nord\r\nActif=1\r\nNbStation=3\r\nDossier_Data=C:\\KV_Data\\\r\n"
                  "Id_Radio=Radio Nord FM\r\n"
                  "[Base_02]\r\nLib=Radio "
                  "Sud\r\nActif=1\r\nNbStation=2\r\nDossier_Data=C:\\KV_Data2\\\r\n");
        WriteFile(dir.file("C/KV_Data/FRAD000.bt6"), "");
        WriteFile(dir.file("C/KV_Data2/FRAD000.bt6"), "");
        instance = std::make_unique<SingleInstance>(
            QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
    }
    void TearDown() override {
        ResetSite();
        unsetenv("XDG_DATA_HOME");
    }
    std::string BkPrg(const std::string& configFolder) {
        return LectureIni(configFolder + "BK_PRG.ini", "Data_Backup", "Start", "<none>");
    }

    TempDir dir;
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
    std::unique_ptr<SingleInstance> instance;
};

TEST_F(MainWindow, StartsWithEightTabsOfBasePagesAndUnloadsInOrder) {
    Startup().ChaineDeCommande = "/IP=10.1.2.3 /Port=5000";
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    testing::Pump(50);

    EXPECT_EQ(frm.windowTitle().toStdString(), "Radio Nord FM - V 3.4.0 - Kavella: Toverin");
    ASSERT_EQ(frm.SftTabsMain()->count(), 8);
    EXPECT_EQ(frm.SftTabsMain()->tabText(0), "Backup");
    EXPECT_EQ(frm.SftTabsMain()->tabText(2), QString::fromUtf8("Création"));
    EXPECT_EQ(frm.SftTabsMain()->tabText(7), "Incidents");
    for (int t = 0; t < ui::kMainTabCount; ++t) {
        QTabWidget* bases = frm.BaseTabs(static_cast<MainTab>(t));
        ASSERT_EQ(bases->count(), 2);
        EXPECT_EQ(bases->tabText(1), "Radio Sud");
    }
    EXPECT_TRUE(frm.TimerMain->isActive());
    EXPECT_EQ(frm.TimerMain->interval(), 30000);
    EXPECT_FALSE(frm.TimerVeille->isActive());
    EXPECT_EQ(Startup().TargetIPAddress, "10.1.2.3");
    std::string shot = testing::SaveScreenshot(&frm, "main_window_two_bases");
    EXPECT_GT(QFileInfo(QString::fromStdString(shot)).size(), 1000);

    // An incident (a network trouble of the record files) shows on the Incidents tab.
    RecordIncident("Err: Network Pervasive errors: 3012 |test");
    testing::Pump(1200);
    auto* incidents = frm.findChild<QListWidget*>("ListeIncidents_1");
    ASSERT_NE(incidents, nullptr);
    ASSERT_EQ(incidents->count(), 1);
    EXPECT_TRUE(incidents->item(0)->text().endsWith("Err: Network Pervasive errors: 3012 |test"));
    ClearIncidents();

    frm.CloseWithMode(ui::kFormControlMenu);
    EXPECT_TRUE(frm.unloaded());
    EXPECT_FALSE(frm.TimerMain->isActive());
    for (const auto& base : Site().bases) EXPECT_EQ(BkPrg(base.configFolder), "0FF");

    std::string log = env.LogText();
    const char* order[] = {"Command Line: '/IP=10.1.2.3 /Port=5000'",
                           "Target IP Address: 10.1.2.3",
                           "FrmMain: Init General: Start",
                           "----- Toverin: Init: Create Object -----",
                           "----- Toverin: Init: Equivalence -----",
                           "----- Init: Duration: ",
                           "Id Radio: Radio Nord FM",
                           "Form closed by system Menu",
                           "---------- Form_Unload: Start",
                           "Unload: FrmSetup: Start"};
    size_t at = 0;
    for (const char* line : order) {
        size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found;
    }
    EXPECT_NE(log.find("==:==:==:====:=:=:=:Id Radio: 1: Radio Nord FM"), std::string::npos);
}

TEST_F(MainWindow, QuitAsksAndIsRefusedWhenLocked) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.locked = true;
    frm.MnuQuitter_Click();
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text, "Le programme est verrouillé. Impossible de le quitter.");
    EXPECT_FALSE(frm.unloaded());

    frm.locked = false;
    dialogs.QueueAnswer(MsgAnswer::No);
    frm.MnuQuitter_Click();
    EXPECT_EQ(dialogs.messages.back().text, "Voulez-vous quitter le programme ?");
    EXPECT_FALSE(frm.unloaded());

    Startup().planningModified[1] = true;
    bool saved = false;
    frm.savePlanning = [&] { saved = true; };
    dialogs.QueueAnswer(MsgAnswer::Yes);  // quit
    dialogs.QueueAnswer(MsgAnswer::Yes);  // save the planning
    frm.MnuQuitter_Click();
    EXPECT_TRUE(frm.unloaded());
    EXPECT_TRUE(saved);
    EXPECT_EQ(dialogs.messages.back().text,
              "Voulez-vous enregistrer les changements apportés au planning des Backups ?");
    std::string log = env.LogText();
    EXPECT_NE(log.find("Application closed by human action (Menu action)\r\n"), std::string::npos);
    EXPECT_NE(log.find("Form closed by code action\r\n"), std::string::npos);
}

// "Journal du jour" where nothing opens a log (a bare server): the day's lines come up on the
// options window's log page, rather than a click that does nothing.
TEST_F(MainWindow, TheDaysLogIsShownEvenWithoutAnEditor) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    // What is only in the day's file now, as an earlier run of the day (last night's backup)
    // would have left it.
    TraceLog("Backup: Ended. Duration: 3 min 12 s");
    TraceLogForce();
    ResetLog();
    const std::string path = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", "/nonexistent", 1);  // no desktop opener at all
    QAction* journal = frm.findChild<QAction*>("MnuLectureLog");
    ASSERT_NE(journal, nullptr);
    journal->trigger();
    setenv("PATH", path.c_str(), 1);
    ui::FrmSetup* setup = frm.setupWindow();
    ASSERT_NE(setup, nullptr);
    EXPECT_TRUE(setup->isVisible());
    auto* tabs = setup->findChild<QTabWidget*>("SftTabsSetup");
    ASSERT_NE(tabs, nullptr);
    EXPECT_EQ(tabs->tabText(tabs->currentIndex()), "Journal");
    auto* lines = setup->findChild<QListWidget*>("ListeLog");
    ASSERT_NE(lines, nullptr);
    EXPECT_FALSE(lines->findItems("Id Radio: Radio Nord FM", Qt::MatchEndsWith).isEmpty());
    EXPECT_FALSE(
        lines->findItems("Backup: Ended. Duration: 3 min 12 s", Qt::MatchEndsWith).isEmpty());
    EXPECT_TRUE(dialogs.messages.empty());
}

// The window's close button ends the program and the planned backups with it: it asks as
// "Quitter" does and honours the lock.
TEST_F(MainWindow, TheCloseButtonAsksAsQuitDoesAndHonoursTheLock) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.show();
    frm.locked = true;
    EXPECT_FALSE(frm.close());
    EXPECT_FALSE(frm.unloaded());
    EXPECT_EQ(dialogs.messages.back().text,
              "Le programme est verrouillé. Impossible de le quitter.");
    frm.locked = false;
    dialogs.QueueAnswer(MsgAnswer::No);
    EXPECT_FALSE(frm.close());
    EXPECT_EQ(dialogs.messages.back().text, "Voulez-vous quitter le programme ?");
    EXPECT_FALSE(frm.unloaded());
    EXPECT_TRUE(frm.TimerMain->isActive()) << "the plans keep running";
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_TRUE(frm.close());
    EXPECT_TRUE(frm.unloaded());
    std::string log = env.LogText();
    EXPECT_NE(log.find("Form closed by system Menu\r\n"), std::string::npos);
    EXPECT_EQ(log.find("Form closed by system Menu"), log.rfind("Form closed by system Menu"))
        << "the refused closes are not logged as closes";
    for (const auto& base : Site().bases) EXPECT_EQ(BkPrg(base.configFolder), "0FF");
}

// One step of the window's own start-up that fails is reported, and the window still loads.
TEST_F(MainWindow, AFailingStartupStepIsReportedAndTheNextOnesRun) {
    Frm_Main frm(instance.get());
    frm.initOperations = [] { throw std::runtime_error("operations not ready"); };
    ASSERT_TRUE(frm.Form_Load());
    EXPECT_EQ(frm.SftTabsMain()->count(), 8);
    std::string log = env.LogText();
    size_t error = log.find("Err: -1 |operations not ready");
    ASSERT_NE(error, std::string::npos) << log;
    EXPECT_NE(log.find("Sub: Form_Load:Frm_Main:Toverin: Init: Data"), std::string::npos);
    EXPECT_GT(log.find("----- Toverin: Init: Display -----"), error);
    EXPECT_GT(log.find("Id Radio: Radio Nord FM"), error);
    frm.CloseWithMode(ui::kFormCode);
}

// Saving one base's plan leaves the other's changes marked, so the question still comes at
// shutdown and saves them.
TEST_F(MainWindow, EachBaseKeepsItsOwnUnsavedPlanningChanges) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.findChild<QComboBox*>(ui::ControlName("ComboBkpHeure", 0))->setCurrentIndex(4);
    frm.findChild<QComboBox*>(ui::ControlName("ComboBkpHeure", 10))->setCurrentIndex(5);
    EXPECT_TRUE(Startup().planningModified[0] && Startup().planningModified[1]);
    frm.findChild<QPushButton*>(ui::ControlName("CommandBkpEnregistrer", 0))->click();
    EXPECT_FALSE(Startup().planningModified[0]);
    EXPECT_TRUE(Startup().planningModified[1]);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    frm.CloseWithMode(ui::kFormCode);
    EXPECT_EQ(dialogs.messages.back().text,
              "Voulez-vous enregistrer les changements apportés au planning des Backups ?");
    EXPECT_EQ(LectureIni(Site().bases[1].ServeurIni(), "Base_1", "Planning_Bkp", "").substr(0, 7),
              "1000502");
    EXPECT_EQ(LectureIni(Site().bases[0].ServeurIni(), "Base_0", "Planning_Bkp", "").substr(0, 7),
              "1000402");
}

TEST_F(MainWindow, StandbyFromTheCommandLineHidesTheWindowAndKeepsTheTimer) {
    Startup().ChaineDeCommande = "/veille=TRUE";
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    EXPECT_TRUE(frm.TimerVeille->isActive());
    testing::Pump(300);
    EXPECT_FALSE(frm.TimerVeille->isActive());
    EXPECT_TRUE(Startup().standby);
    // No tray offscreen, as on GNOME: the window goes to the task bar, where the user finds it.
    EXPECT_TRUE(frm.isMinimized());
    EXPECT_NE(
        env.LogText().find("Standby: Start (no tray on this desktop: the window is minimised)"),
        std::string::npos);
    EXPECT_TRUE(frm.TimerMain->isActive());
    frm.CloseWithMode(ui::kAppWindows);
    EXPECT_NE(env.LogText().find("Form closed because Windows is shutting down"),
              std::string::npos);
}

// A second start is refused and leaves the first as it is: in standby it stays in standby.
TEST_F(MainWindow, ASecondStartLeavesTheFirstInStandby) {
    Startup().ChaineDeCommande = "/Veille=True";
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    testing::Pump(300);
    ASSERT_TRUE(Startup().standby);
    ASSERT_TRUE(frm.isMinimized());
    SingleInstance second(QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
    EXPECT_FALSE(ui::TesterPrevInstance(second, false, 300));
    testing::Pump(300);
    EXPECT_TRUE(Startup().standby);
    EXPECT_TRUE(frm.isMinimized());
    EXPECT_EQ(env.LogText().find("Standby: End"), std::string::npos);
    frm.CloseWithMode(ui::kFormCode);
}

TEST_F(MainWindow, SecondInstanceIsRefusedWithOneMessageAndTouchesNoFile) {
    ASSERT_TRUE(instance->TryAcquire());  // the first instance
    SingleInstance second(QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
    EXPECT_TRUE(second.OtherRunning());
    EXPECT_FALSE(ui::TesterPrevInstance(second, false, 200));
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Application encore chargée en mémoire.\r\n\r\nVeuillez la quitter avant de relancer "
              "une autre instance de cette application.");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_FALSE(std::filesystem::exists(dir.file("Settings/KV3_Config.ini.tmp")));
}

}  // namespace
}  // namespace toverin
