#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "operations/Backup.h"
#include "operations/Restore.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "tests/operations/SiteFixture.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::SiteFixture;

class Restore : public SiteFixture {
  protected:
    void SetUp() override {
        MakeSite(2);
        for (int s = 1; s <= 2; ++s) {
            std::vector<std::string> songs;
            for (int n = 1; n <= 30; ++n) songs.push_back(Record(22, n * s));
            WriteFile(22, s, songs);
            WriteFile(35, s, {Record(35, 1, DaysAgo(2)), Record(35, 2, DaysAgo(200))});
        }
        options = Options();
        options.files.fill(false);
        for (int f : {0, 22, 35}) options.files[f] = true;
        ASSERT_TRUE(BackupData(0, true, options, view).finished);
        originals[22] = ReadAll(DataPath(22, 1));
        originals[35] = ReadAll(DataPath(35, 1));
        originals[0] = ReadAll(DataPath(0, 1));
        request.dayName = "Lundi";
        request.stations[0] = true;
        for (int f : {0, 22, 35}) request.files[f] = true;
        ResetRecordAccess();
    }
    // Empties the base's data as a failed disk would leave it.
    void EmptyBase() {
        for (int f : {0, 22, 35}) fs::remove(DataPath(f, 1));
    }

    BackupOptions options;
    RecordingView view;
    RestoreRequest request;
    std::map<int, std::vector<std::string>> originals;
};

TEST_F(Restore, RecordWayGivesBackEveryRecordByteForByte) {
    EmptyBase();
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 3);
    EXPECT_EQ(outcome.failedFiles, 0);
    for (int f : {0, 22, 35}) EXPECT_EQ(ReadAll(DataPath(f, 1)), originals[f]) << f;
    std::string log = Log();
    EXPECT_NE(log.find(":Restore started. File:       " + DataPath(22, 1) + "\r\n"),
              std::string::npos);
    EXPECT_NE(log.find(":Restore ended.   Nb records: 30 / 30\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Station: Not selected\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Restore: Ended. Duration: "), std::string::npos);
    EXPECT_EQ(dialogs.messages.back().text, "Restauration terminée");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);
    EXPECT_TRUE(fs::exists(DataPath(22, 2))) << "an unselected station is untouched";
    EXPECT_EQ(view.busyCaption,
              "Kavella: Toverin - V 3.4.0 - Restauration en cours de la base Radio Test");
}

// A site copied from Windows: the restore writes into the files as they are named there.
TEST_F(Restore, FilesNamedInAnotherCaseAreRestoredInPlace) {
    const std::string upper = dir.file("C/KV_Data/FRADA22.BT6");
    fs::rename(DataPath(22, 1), upper);
    fs::rename(dir.file("C/KV_Data/_Backup/Lundi/FRADA35.btr"),
               dir.file("C/KV_Data/_Backup/Lundi/frada35.BTR"));
    fs::remove(DataPath(35, 1));
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.failedFiles, 0) << Log();
    EXPECT_EQ(ReadAll(upper), originals[22]);
    EXPECT_FALSE(fs::exists(DataPath(22, 1))) << "no second file beside the first";
    EXPECT_EQ(ReadAll(DataPath(35, 1)), originals[35]);
}

// The restore reads the backup's copies read-only: they stay byte for byte as the backup left
// them, and nothing is added beside them, though reading them needs indexes their load put off.
TEST_F(Restore, TheBackupsCopiesAreLeftAsTheyWere) {
    const fs::path day = dir.folder() + "C/KV_Data/_Backup/Lundi/";
    auto contents = [&] {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(day))
            files[entry.path().filename().string()] = testing::ReadFile(entry.path());
        return files;
    };
    const std::map<std::string, std::string> before = contents();
    ASSERT_EQ(before.count("FRADA22.btr"), 1u);
    EmptyBase();
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 3);
    EXPECT_EQ(ReadAll(DataPath(35, 1)), originals[35]);
    EXPECT_TRUE(contents() == before) << "a copy changed, or a file appeared beside them";
}

TEST_F(Restore, TickedEmptyStructureBoxCopiesTheWholeFile) {
    EmptyBase();
    request.createEmptyStructure = true;
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 3);
    EXPECT_EQ(ReadAll(DataPath(22, 1)), originals[22]);
    std::string backup = dir.folder() + "C/KV_Data/_Backup/Lundi/FRADA22.btr";
    EXPECT_NE(Log().find("Copy file: " + backup + " to " + DataPath(22, 1)), std::string::npos);
    EXPECT_EQ(Log().find("Restore started."), std::string::npos) << "no record copy";
    bool shown = false;
    for (const auto& m : dialogs.messages)
        shown = shown ||
                m.text == "Fichier copié: '" + backup + "'\r\n\r\nVers:\r\n\r\n" + DataPath(22, 1);
    EXPECT_TRUE(shown);
}

TEST_F(Restore, NoStationOrNoBackupIsSaidPlainly) {
    RestoreRequest none = request;
    none.stations.fill(false);
    EXPECT_TRUE(RestoreData(0, none, options, view).refused);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Vous devez sélectionner au moins une station pour restaurer");
    EXPECT_EQ(Log().find("Restore: Started"), std::string::npos);

    request.dayName = "Mardi";
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 0);
    EXPECT_EQ(dialogs.messages.back().text, "Aucune restauration à faire");
    EXPECT_NE(
        Log().find("Err: File not found: " + dir.folder() + "C/KV_Data/_Backup/Mardi/FRADA22.btr"),
        std::string::npos);
    EXPECT_EQ(ReadAll(DataPath(22, 1)), originals[22]) << "nothing touched";
}

TEST(Creation, AsksBeforeEmptyingAFileThatHoldsRecords) {
    struct Fixture : SiteFixture {
        void TestBody() override {}
    } site;
    site.MakeSite(2);
    site.WriteFile(22, 1, {site.Record(22, 1), site.Record(22, 2)});
    site.WriteFile(22, 2, {});
    RecordingView view;
    CreationRequest request;
    request.files[22] = true;
    request.files[8] = true;  // an entry without a file is skipped
    EXPECT_TRUE(CreateData(0, request, view).refused);
    EXPECT_EQ(site.dialogs.messages.back().text, "Vous devez sélectionner au moins une station");

    request.stations = {true, true};
    site.dialogs.messages.clear();
    site.dialogs.QueueAnswer(MsgAnswer::No);
    CreationOutcome outcome = CreateData(0, request, view);
    EXPECT_EQ(outcome.kept, 1);
    EXPECT_EQ(outcome.created, 1) << "the empty file of station 2 is made without a question";
    ASSERT_GE(site.dialogs.messages.size(), 1u);
    EXPECT_EQ(site.dialogs.messages[0].text, "Le fichier '" + site.DataPath(22, 1) +
                                                 "' contient 2 enregistrements.\r\n\r\nLibellé: "
                                                 "Morceaux\r\n\r\nVoulez-vous le recréer à vide ?");
    EXPECT_EQ(site.ReadAll(site.DataPath(22, 1)).size(), 2u);

    site.dialogs.QueueAnswer(MsgAnswer::Yes);
    request.stations = {true, false};
    outcome = CreateData(0, request, view);
    EXPECT_EQ(outcome.created, 1);
    EXPECT_EQ(site.ReadAll(site.DataPath(22, 1)).size(), 0u);
    EXPECT_NE(
        site.Log().find(":Create: File: " + site.DataPath(22, 1) + " (Prev Nb records: 2)\r\n"),
        std::string::npos);
    EXPECT_EQ(site.dialogs.messages.back().text,
              "Le fichier '" + site.DataPath(22, 1) + "' a été créé à vide\r\n\r\nMorceaux");
}

}  // namespace
}  // namespace toverin
