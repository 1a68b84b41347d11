#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::ScopedLogAndRegistry;
using testing::ScriptedDialogs;
using testing::TempDir;
using testing::WriteFile;

class SiteConfigTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetSite();
        ClearDriveTable();
        SetSuiteRoot(dir.folder());
        SetShareSources(dir.file("smb.conf"), dir.file("exports"));
    }
    void TearDown() override { ResetSite(); }
    void Init() {
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
        DetermineFichierConfig();
    }
    std::string Config(const std::string& section, const std::string& key) {
        return LectureIni(Site().configFile, section, key, "<none>");
    }
    TempDir dir;
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
};

TEST_F(SiteConfigTest, CarryOverWithNothingWritesOneActiveBaseWithDefaults) {
    Init();
    EXPECT_EQ(Config("Site", "Lib"), "Nom de la radio");
    EXPECT_EQ(Config("Site", "Actif"), "1");
    EXPECT_EQ(Config("Site", "NbBase"), "1");
    EXPECT_EQ(Config("Site", "NoBase"), "1");
    EXPECT_EQ(Config("Base_01", "Lib"), "Nom de la radio");
    EXPECT_EQ(Config("Base_01", "NbStation"), "1");
    EXPECT_EQ(Config("Base_01", "Dossier_Log"), "C:\\AudioLog\\");
    EXPECT_EQ(Config("Base_01", "Dossier_Log_Pub"), "C:\\AudioLog\\Pub\\");
    EXPECT_EQ(Config("Base_01", "Dossier_Notes"), "C:\\Brennick\\Kavella\\Notes\\");
    EXPECT_EQ(Config("Base_01", "Dossier_Data"), "C:\\BTRieve\\Data\\");
    EXPECT_EQ(Config("Base_01", "Dossier_Data_Backup"), "C:\\BTRieve\\Data\\");
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("Settings/KV3_Toverin/Histo")));
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("Settings/KV3_Toverin/Images")));
}

TEST_F(SiteConfigTest, CarryOverReadsOldFilesAndClampsBaseCount) {
    WriteFile(dir.file("C/Windows/Win.ini"),
              "[Brennick]\r\nUNC_Actif=0FF\r\nINI_KAVELLA=C:\\Old\r\nNb_Base=12\r\n");
    WriteFile(dir.file("C/Old/Config/BK_Sys.ini"), "[Div_radio]\r\nNom_Radio=Radio Nord\r\n");
    WriteFile(dir.file("C/Old/Config/KV3_Systeme.ini"),
              "[Stations]\r\nNb_Max=3\r\n[Repertoires]\r\nREPBTR=D:\\Data\\\r\n");
    Init();
    EXPECT_EQ(Config("Site", "NbBase"), "8");
    EXPECT_EQ(Config("Site", "Lib"), "Radio Nord");
    EXPECT_EQ(Config("Base_01", "Lib"), "Base 01") << "several bases are named by number";
    EXPECT_EQ(Config("Base_01", "NbStation"), "3");
    EXPECT_EQ(Config("Base_01", "Dossier_Data"), "D:\\Data\\");
    EXPECT_EQ(Config("Base_08", "Actif"), "1");

    WriteFile(dir.file("C/Windows/Win.ini"), "[Brennick]\r\nNb_Base=0\r\n");
    std::filesystem::remove(Site().configFile);
    ResetSite();
    Init();
    EXPECT_EQ(Config("Site", "NbBase"), "1");
}

TEST_F(SiteConfigTest, BasesStationsAndFoldersAreReadNormalisedAndCreated) {
    DetermineDossierSettings();
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\r\nNbBase=2\r\nNoBase=2\r\n"
              "[Base_01]\r\nLib=Radio A\r\nActif=1\r\nNbStation=2\r\nDossier_Data=C:\\KV/DataA\r\n"
              "Dossier_Config_Global=C:\\Cfg\\A\\\r\nDossier_NinSight=C:\\NinSight\r\n"
              "[Base_02]\r\nDossier_Data=/abs/ignored/then\r\nDossier_Log=E:\\Logs\r\n");
    WriteFile(dir.file("C/KV/DataA/FRAD000.bt6"), "x");
    WriteFile(dir.file("C/Cfg/A/KV3_Systeme.ini"),
              "[Base_01]\r\nLib=Libell\xE9 A\r\nDossiers_Sons_Jin02=C:\\Sons\\Jingles\r\n"
              "[Base_01_Station_02]\r\nLib=Nord\r\n");
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    ASSERT_EQ(Site().bases.size(), 2u);
    const BaseConfig& a = Site().bases[0];
    EXPECT_EQ(a.label, "Radio A");
    EXPECT_TRUE(a.active);
    EXPECT_EQ(a.dataFolder, dir.folder() + "C/KV/DataA/");
    EXPECT_EQ(a.dataBackupFolder, dir.folder() + "C/KV/DataA_Backup/");
    EXPECT_EQ(a.ninSightFolder, dir.folder() + "C/NinSight/");
    EXPECT_FALSE(std::filesystem::exists(dir.file("C/NinSight"))) << "another system's folder";
    EXPECT_TRUE(a.databasePresent);
    ASSERT_EQ(a.stations.size(), 2u);
    EXPECT_EQ(a.stations[0].label, "Station 01");
    EXPECT_EQ(a.stations[1].label, "Nord");
    EXPECT_EQ(a.stations[1].soundFolders[1], dir.folder() + "C/Sons/Jingles/");
    EXPECT_EQ(a.stations[1].soundFolders[0], dir.folder() + "C/KV_Sons/Musique/");
    EXPECT_EQ(DetermineDossierConfig_Bases_Libelle(0), "Libellé A");
    const BaseConfig& b = Site().bases[1];
    EXPECT_EQ(b.label, "Base 02");
    EXPECT_FALSE(b.active);
    EXPECT_EQ(b.ninSightFolder, "");
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("E/Logs")));
    EXPECT_EQ(LogConfig().folder, dir.folder() + "E/Logs/") << "the current base's log folder";
    // Base 2's database is missing: asked once, answered No (unattended answer), still configured.
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find(
                  "Impossible de trouver la base de données pour la base: Base 02"),
              std::string::npos);
    EXPECT_EQ(dialogs.messages[0].buttons, MsgButtons::YesNoCancel);
    EXPECT_FALSE(b.databasePresent);
}

TEST_F(SiteConfigTest, MissingDatabaseYesPicksAFolderRetriesAndWritesIt) {
    DetermineDossierSettings();
    WriteFile(dir.file("Settings/KV3_Config.ini"), "[Site]\r\nNbBase=1\r\n");
    WriteFile(dir.file("found/FRAD000.bt6"), "x");
    dialogs.QueueAnswer(MsgAnswer::Yes);
    dialogs.QueueFolder(dir.file("empty"));  // not there: asked again
    dialogs.QueueAnswer(MsgAnswer::Yes);
    dialogs.QueueFolder(dir.file("found"));
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    EXPECT_EQ(dialogs.messages.size(), 2u);
    EXPECT_EQ(Site().bases[0].dataFolder, dir.folder() + "found/");
    EXPECT_EQ(LectureIni(Site().configFile, "Base_01", "Dossier_Data", ""),
              dir.folder() + "found/");

    ResetSite();
    DetermineDossierSettings();
    std::filesystem::remove(dir.file("found/FRAD000.bt6"));
    dialogs.QueueAnswer(MsgAnswer::Cancel);
    EXPECT_EQ(InitGeneralSite(), SiteInitResult::Cancelled);
}

// A service starts in "/": a blank folder key must never become a folder relative to it.
TEST_F(SiteConfigTest, NoConfigurationOrBlankFolderKeysTakeTheDefaultFolders) {
    TempDir cwd;
    std::string previous = std::filesystem::current_path().string();
    ASSERT_EQ(::chdir(cwd.path().c_str()), 0);
    // No "KV3_Config.ini": the carry-over writes "Dossier_Local=" and "Dossier_Shared=" blank.
    Init();
    ASSERT_EQ(Config("Base_01", "Dossier_Local"), "");
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    EXPECT_EQ(Site().bases[0].localFolder, dir.folder() + "C/Brennick/Kavella/Settings/_Local/");
    EXPECT_EQ(Site().bases[0].sharedFolder, dir.folder() + "C/Brennick/Kavella/Shared/");

    ResetSite();
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\r\nNbBase=1\r\n[Base_01]\r\nDossier_Local=\r\nDossier_Data=  \r\n"
              "Dossier_Log=\r\nDossier_Config_Global=\r\n");
    WriteFile(dir.file("Settings/Base_01/KV3_Systeme.ini"),
              "[Base_01]\r\nDossiers_Sons_Mus01=\r\n");
    Init();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    const BaseConfig& base = Site().bases[0];
    EXPECT_EQ(base.localFolder, dir.folder() + "C/Brennick/Kavella/Settings/_Local/");
    EXPECT_EQ(base.dataFolder, dir.folder() + "C/KV_Data/");
    EXPECT_EQ(base.dataBackupFolder, dir.folder() + "C/KV_Data_Backup/");
    EXPECT_EQ(base.logFolder, dir.folder() + "C/AudioLog/");
    EXPECT_EQ(base.configFolder, dir.folder() + "Settings/Base_01/");
    EXPECT_EQ(base.stations[0].soundFolders[0], dir.folder() + "C/KV_Sons/Musique/");
    EXPECT_NE(
        dialogs.messages.back().text.find("Fichier '" + dir.folder() + "C/KV_Data/FRAD000.bt6'"),
        std::string::npos);
    ASSERT_EQ(::chdir(previous.c_str()), 0);
    EXPECT_TRUE(std::filesystem::is_empty(cwd.path())) << "nothing made where the program started";
}

// "Dossier_Data=C:\Données\" written by an editor on Linux, in UTF-8.
TEST_F(SiteConfigTest, AUtf8ConfigurationFindsItsFolders) {
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\nNbBase=1\n[Base_01]\nLib=Radio \xC3\x89t\xC3\xA9\n"
              "Dossier_Data=C:\\Donn\xC3\xA9"
              "es\\\n");
    WriteFile(dir.file("C/Donn\xC3\xA9"
                       "es/FRAD000.bt6"),
              "x");
    Init();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    EXPECT_EQ(Site().bases[0].label, "Radio Été");
    EXPECT_EQ(Site().bases[0].dataFolder, dir.folder() + "C/Données/");
    EXPECT_TRUE(Site().bases[0].databasePresent);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_FALSE(
        std::filesystem::exists(dir.file("C/Donn\xC3\x83\xC2\xA9"
                                         "es")));
}

// A site copied from Windows keeps the case its files and folders had there.
TEST_F(SiteConfigTest, NamesInAnotherCaseOnDiskAreFound) {
    WriteFile(dir.file("SETTINGS/kv3_config.INI"),
              "[Site]\r\nNbBase=2\r\n[Base_01]\r\nDossier_Data=C:\\KV_DATA\\\r\n"
              "Dossier_Config_Global=c:\\kv_config\\\r\n"
              "[Base_02]\r\nDossier_Data=C:\\KV_Data\\Base2\\\r\n");
    WriteFile(dir.file("C/KV_Data/frad000.BT6"), "x");
    WriteFile(dir.file("C/KV_Data/BASE2/FRAD000.BT6"), "x");
    WriteFile(dir.file("C/KV_Config/KV3_SYSTEME.INI"), "[Base_01]\r\nLib=Nord\r\n");
    Init();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    EXPECT_EQ(Site().configFile, dir.folder() + "SETTINGS/kv3_config.INI");
    EXPECT_EQ(Site().bases[0].dataFolder, dir.folder() + "C/KV_Data/");
    EXPECT_EQ(Site().bases[0].configFolder, dir.folder() + "C/KV_Config/");
    EXPECT_EQ(Site().bases[1].dataFolder, dir.folder() + "C/KV_Data/BASE2/");
    EXPECT_TRUE(Site().bases[0].databasePresent);
    EXPECT_TRUE(Site().bases[1].databasePresent);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_EQ(DetermineDossierConfig_Bases_Libelle(0), "Nord");
    EXPECT_FALSE(std::filesystem::exists(dir.file("Settings")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("C/KV_DATA")));
    EXPECT_EQ(ExistingCase(dir.folder() + "C/kv_data/FRAD000.bt6"),
              dir.folder() + "C/KV_Data/frad000.BT6");
    EXPECT_EQ(ExistingCase(dir.folder() + "C/kv_data/Missing/FRAD000.bt6"),
              dir.folder() + "C/KV_Data/Missing/FRAD000.bt6");
}

TEST_F(SiteConfigTest, PathsAcceptBothSeparatorsDrivesAndLocalShares) {
    SetDriveFolder('D', dir.folder() + "disk-d");
    EXPECT_EQ(NativePath("C:\\KV_Data\\FRAD000.bt6"), dir.folder() + "C/KV_Data/FRAD000.bt6");
    EXPECT_EQ(NativePath("d:/x\\y"), dir.folder() + "disk-d/x/y");
    EXPECT_EQ(NormaliseFolder("C:\\A\\\\"), dir.folder() + "C/A/");
    EXPECT_EQ(NormaliseFolder("rel\\dir"), "rel/dir/");
    WriteFile(dir.file("smb.conf"), "[global]\npath = /nope\n[KV_Data]\n   path = /srv/kv\n");
    WriteFile(dir.file("exports"), "# nfs\n/export/sons  *(ro)\n");
    EXPECT_EQ(ChangeUNCFolder2LocalFolder("\\\\localhost\\kv_data\\Base1\\"), "/srv/kv/Base1/");
    EXPECT_EQ(ChangeUNCFolder2LocalFolder("\\\\localhost\\export\\sons\\Mus"), "/export/sons/Mus");
    EXPECT_EQ(ChangeUNCFolder2LocalFolder("\\\\otherhost\\KV_Data\\"), "\\\\otherhost\\KV_Data\\");
    std::string log = env.LogText();
    EXPECT_NE(
        log.find(": UNC: Path change from: \\\\localhost\\kv_data\\Base1\\ to: /srv/kv/Base1/"),
        std::string::npos);
    EXPECT_NE(log.find("UNC Path to Change: \\\\otherhost\\KV_Data\\"), std::string::npos);
}

}  // namespace
}  // namespace toverin
