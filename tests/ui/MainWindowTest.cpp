#include <gtest/gtest.h>

#include <QFileInfo>
#include <QListWidget>
#include <QMenuBar>
#include <QTabWidget>
#include <filesystem>

#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/UiTestSupport.h"
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

    Startup().planningModified = true;
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

TEST_F(MainWindow, StandbyFromTheCommandLineHidesTheWindowAndKeepsTheTimer) {
    Startup().ChaineDeCommande = "/veille=TRUE";
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    EXPECT_TRUE(frm.TimerVeille->isActive());
    testing::Pump(300);
    EXPECT_FALSE(frm.TimerVeille->isActive());
    EXPECT_TRUE(Startup().standby);
    EXPECT_FALSE(frm.isVisible());
    EXPECT_TRUE(frm.TimerMain->isActive());
    frm.CloseWithMode(ui::kAppWindows);
    EXPECT_NE(env.LogText().find("Form closed because Windows is shutting down"),
              std::string::npos);
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
