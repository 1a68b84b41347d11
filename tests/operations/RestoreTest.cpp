#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "operations/Backup.h"
#include "operations/Restore.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"
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
    RecordingProgress view;
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
    EXPECT_EQ(view.Last<progress::Started>()->caption,
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
    EXPECT_EQ(outcome.missingNames.size(), 3u);
    EXPECT_EQ(dialogs.messages.back().text, "Aucune restauration à faire");
    // Nothing was restored: the tab does not say the run went well.
    EXPECT_EQ(view.Last<progress::Ended>()->outcome, progress::Outcome::Failed);
    EXPECT_EQ(view.Last<progress::Ended>()->summary, "3 fichier(s) absent(s) du backup du Mardi");
    EXPECT_NE(
        Log().find("Err: File not found: " + dir.folder() + "C/KV_Data/_Backup/Mardi/FRADA22.btr"),
        std::string::npos);
    EXPECT_EQ(ReadAll(DataPath(22, 1)), originals[22]) << "nothing touched";

    // A backup that lacks one of the files: the others come back, and the missing one is named.
    fs::remove(dir.folder() + "C/KV_Data/_Backup/Lundi/FRADA35.btr");
    request.dayName = "Lundi";
    outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 2);
    EXPECT_EQ(outcome.missingNames, std::vector<std::string>{"FRADA35.bt6"});
    EXPECT_EQ(view.Last<progress::Ended>()->outcome, progress::Outcome::Incomplete);
    EXPECT_EQ(dialogs.messages.back().text,
              "Restauration terminée\r\n\r\nFichiers absents du backup du Lundi, non restaurés : "
              "FRADA35.bt6");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);
}

TEST_F(Restore, ABackupThatCannotBeReadLeavesTheLiveFileAsItWas) {
    // The live files moved on since the backup; the backup of station 1's songs is cut short,
    // as a copy interrupted on a full disk would leave it.
    std::vector<std::string> live;
    for (int n = 1; n <= 35; ++n) live.push_back(Record(22, n));
    WriteFile(22, 1, live);
    const std::string backup = dir.folder() + "C/KV_Data/_Backup/Lundi/FRADA22.btr";
    fs::resize_file(backup, fs::file_size(backup) / 2);
    request.files.fill(false);
    request.files[22] = true;
    request.files[35] = true;

    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 1);
    EXPECT_EQ(outcome.failedNames, std::vector<std::string>{"FRADA22.bt6"});
    EXPECT_EQ(ReadAll(DataPath(22, 1)), live) << "nothing of the live file was lost";
    EXPECT_EQ(ReadAll(DataPath(35, 1)), originals[35]);
    EXPECT_FALSE(fs::exists(DataPath(22, 1) + ".new"));
    EXPECT_EQ(dialogs.messages.back().text,
              "Restauration terminée\r\n\r\nFichiers non restaurés, laissés tels quels : "
              "FRADA22.bt6");
    EXPECT_EQ(view.Last<progress::Ended>()->outcome, progress::Outcome::Incomplete);
    EXPECT_NE(Log().find("Err: Can't open the file: " + backup), std::string::npos);
    EXPECT_NE(Log().find("Restore: Summary: 1 files restored, 1 failed (FRADA22.bt6), 0 not in "
                         "the backup"),
              std::string::npos);

    // The whole-file way checks the backup the same way before it copies anything.
    request.createEmptyStructure = true;
    dialogs.messages.clear();
    outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.failedFiles, 1);
    EXPECT_EQ(ReadAll(DataPath(22, 1)), live);
}

TEST_F(Restore, StationTwoAloneLeavesTheCommonFilesAlone) {
    // The live data moved on after the backup, in the common file and in station 2's songs.
    WriteFile(0, 1, {Record(0, 1), Record(0, 2), Record(0, 3), Record(0, 4)});
    WriteFile(22, 2, {Record(22, 7)});
    request.stations = {false, true};
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 2) << "station 2's songs and history";
    EXPECT_EQ(ReadAll(DataPath(0, 1)).size(), 4u) << "the base's common file is untouched";
    EXPECT_EQ(ReadAll(DataPath(22, 2)).size(), 30u);
    const std::string log = Log();
    EXPECT_EQ(log.find("FRAD000.btr", log.find("Restore: Started")), std::string::npos);
}

TEST_F(Restore, FromTheLocalRootWhenAsked) {
    fs::remove_all(dir.folder() + "C/KV_Data/_Backup");
    EmptyBase();
    request.fromLocalRoot = true;
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.restoredFiles, 3);
    for (int f : {0, 22, 35}) EXPECT_EQ(ReadAll(DataPath(f, 1)), originals[f]) << f;
    EXPECT_NE(Log().find("File found: " + dir.folder() + "C/KV_Local/Data/_Backup/Lundi/"),
              std::string::npos);
}

TEST_F(Restore, ADataFileAStationHoldsOpenIsLeftAsItWas) {
    engine::EngineFile station;
    ASSERT_EQ(station.Open(DataPath(22, 1)), 0);
    std::string record = Record(22, 99), key(255, ' ');
    ASSERT_EQ(station.Call(btr::kInsert, record, key, 0), 0);
    RestoreOutcome outcome = RestoreData(0, request, options, view);
    EXPECT_EQ(outcome.failedNames, std::vector<std::string>{"FRADA22.bt6"});
    EXPECT_NE(Log().find("Err: Unable to delete " + DataPath(22, 1)), std::string::npos);
    station.Close();
    EXPECT_EQ(ReadAll(DataPath(22, 1)).size(), 31u) << "the station's write is still there";
}

TEST(Creation, AsksBeforeEmptyingAFileThatHoldsRecords) {
    struct Fixture : SiteFixture {
        void TestBody() override {}
    } site;
    site.MakeSite(2);
    site.WriteFile(22, 1, {site.Record(22, 1), site.Record(22, 2)});
    site.WriteFile(22, 2, {});
    RecordingProgress view;
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

    // No file chosen: said, rather than a click that ends without a word.
    CreationRequest none = request;
    none.files.fill(false);
    EXPECT_TRUE(CreateData(0, none, view).refused);
    EXPECT_EQ(site.dialogs.messages.back().text, "Vous devez sélectionner au moins un fichier");

    // A file that cannot be made (a folder stands in its place): the run ends saying so.
    fs::remove(site.DataPath(22, 2));
    fs::create_directory(site.DataPath(22, 2));
    request.stations = {false, true};
    outcome = CreateData(0, request, view);
    EXPECT_EQ(outcome.failed, 1);
    EXPECT_EQ(view.Last<progress::Ended>()->outcome, progress::Outcome::Incomplete);
    EXPECT_EQ(site.dialogs.messages.back().text,
              "Les fichiers suivants n'ont pas été créés :\r\n\r\n" + site.DataPath(22, 2) +
                  " (statut 11)\r\n\r\nLe journal du jour donne le détail.");
    EXPECT_EQ(site.dialogs.messages.back().icon, MsgIcon::Critical);
}

}  // namespace
}  // namespace toverin
