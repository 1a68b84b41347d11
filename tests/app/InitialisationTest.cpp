#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Initialisation.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::ScopedLogAndRegistry;
using testing::ScriptedDialogs;
using testing::TempDir;
using testing::WriteFile;

class Initialisation : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetStartup();
        ResetSite();
        ClearDriveTable();
        SetSuiteRoot(dir.folder());
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        WriteFile(dir.file("Settings/KV3_Config.ini"),
                  "[Site]\r\nNbBase=1\r\n[Base_01]\r\nDossier_Data=C:\\KV_Data\\\r\n");
        WriteFile(dir.file("C/KV_Data/FRAD000.bt6"), "x");
    }
    void TearDown() override {
        ResetSite();
        unsetenv("XDG_DATA_HOME");
    }
    TempDir dir;
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
};

// One step that fails is reported with its mark, and the steps after it still run.
TEST_F(Initialisation, AFailingStepIsReportedAndTheNextOnesRun) {
    std::vector<std::string> announced;
    InitResult result = InitApplication(
        [&](const std::string& step) {
            announced.push_back(step);
            if (step == "Init: InitGeneralSysteme") throw std::runtime_error("no desktop here");
        },
        "/IP=10.0.0.1");
    EXPECT_EQ(result, InitResult::Ok);
    ASSERT_EQ(announced.size(), 8u);
    EXPECT_EQ(announced.back(), "Init: InitGeneralSite");
    EXPECT_TRUE(Site().bases.at(0).databasePresent) << "the site was read all the same";
    EXPECT_EQ(Startup().TargetIPAddress, "10.0.0.1");
    std::string log = env.LogText();
    EXPECT_NE(log.find("Err: -1 |no desktop here"), std::string::npos) << log;
    EXPECT_NE(log.find("Sub: InitApplication:Lib_Initialisation:D (Source: Toverin)"),
              std::string::npos);
}

TEST_F(Initialisation, AStopRequestedDuringTheStepsEndsThem) {
    std::vector<std::string> announced;
    InitResult result = InitApplication(
        [&](const std::string& step) {
            announced.push_back(step);
            if (step == "Init: DetermineChaineDeCommande") RequestTermination();
        },
        "/Backup_Base=0");
    ClearTermination();
    EXPECT_EQ(result, InitResult::Terminated);
    EXPECT_EQ(announced.size(), 2u);
    EXPECT_TRUE(Site().bases.empty()) << "the site is not read";
}

// The two document types of the record files, per user, only when missing or changed; the test
// points XDG_DATA_HOME at its own folder.
TEST_F(Initialisation, RecordFilesAreRegisteredAsDocumentTypesOfTheUser) {
    InitGeneralSysteme();
    const std::string xdg = dir.file("xdg");
    std::string mime = ReadFile(xdg + "/mime/packages/kavella-toverin.xml");
    EXPECT_NE(mime.find("<comment>KV Data</comment>"), std::string::npos);
    EXPECT_NE(mime.find("<glob pattern=\"*.bt6\"/>"), std::string::npos);
    EXPECT_NE(mime.find("<comment>KV Backup Data</comment>"), std::string::npos);
    EXPECT_NE(mime.find("<glob pattern=\"*.btr\"/>"), std::string::npos);
    std::string desktop = ReadFile(xdg + "/applications/kavella-toverin.desktop");
    EXPECT_NE(desktop.find("Icon=kavella-toverin\n"), std::string::npos);
    EXPECT_NE(desktop.find("MimeType=application/x-kavella-data;application/x-kavella-backup;\n"),
              std::string::npos);
    EXPECT_NE(desktop.find("\" file stat %f\n"), std::string::npos) << desktop;
    EXPECT_NE(ReadFile(xdg + "/icons/hicolor/scalable/apps/kavella-toverin.svg").find("<svg"),
              std::string::npos);
    // The desktop's own database knows the types now (shared-mime-info is always there with Qt).
    EXPECT_NE(ReadFile(xdg + "/mime/globs2").find("application/x-kavella-data:*.bt6"),
              std::string::npos);

    // Nothing is written again while it is as it should be; a damaged file is put right.
    auto before = fs::last_write_time(xdg + "/mime/packages/kavella-toverin.xml");
    std::string log = env.LogText();
    InitGeneralSysteme();
    EXPECT_EQ(env.LogText().size(), log.size());
    EXPECT_EQ(fs::last_write_time(xdg + "/mime/packages/kavella-toverin.xml"), before);
    WriteFile(xdg + "/applications/kavella-toverin.desktop", "[Desktop Entry]\n");
    InitGeneralSysteme();
    EXPECT_EQ(ReadFile(xdg + "/applications/kavella-toverin.desktop"), desktop);
    EXPECT_NE(env.LogText().find("InitGeneralSysteme: Written: " + xdg +
                                 "/applications/kavella-toverin.desktop"),
              std::string::npos);
}

}  // namespace
}  // namespace toverin
