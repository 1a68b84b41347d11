// The backup on a bad night: sources that cannot be read, a root that fills up or is read-only,
// a root that is not there, a run across midnight, a stop while paused, and a planned run where
// every question would open a box.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "app/EventPump.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Text.h"
#include "operations/Backup.h"
#include "operations/BackupHealth.h"
#include "operations/OperationState.h"
#include "operations/Scheduler.h"
#include "store/engine/EngineFile.h"
#include "tests/operations/SiteFixture.h"
#include "tests/support/DiskDamage.h"
#include "tests/support/Mounts.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

class BackupFaults : public testing::SiteFixture {
  protected:
    void SetUp() override {
        ClearIncidents();
        MakeSite(2);
        for (int s = 1; s <= 2; ++s) {
            std::vector<std::string> songs;
            for (int n = 1; n <= 45; ++n) songs.push_back(Record(22, n));
            WriteFile(22, s, songs);
            WriteFile(29, s, {Record(29, 1), Record(29, 2)});
        }
        options = Options();
        options.files.fill(false);
        for (int f : {0, 22, 29}) options.files[f] = true;
        SaveBackupOptions(0, options);  // what the buttons and the scheduler read
    }
    void TearDown() override { SetEventPump(nullptr); }
    std::string ServerDay(const std::string& day = "Lundi") const {
        return dir.folder() + "C/KV_Data/_Backup/" + day + "/";
    }
    std::string LocalDay(const std::string& day = "Lundi") const {
        return dir.folder() + "C/KV_Local/Data/_Backup/" + day + "/";
    }
    std::string BkSys(const std::string& key) {
        return LectureIni(dir.file("C/KV_Config/Bk_Sys.ini"), "Sauvegarde", key, "<none>");
    }
    std::string Marker(const char* key) {
        return LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", key, "<none>");
    }
    size_t Count(const std::string& path) { return ReadAll(path).size(); }
    // Every file the backup left under a temporary name.
    std::vector<std::string> Leftovers(const std::string& folder) {
        std::vector<std::string> found;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            if (e.path().extension() == ".new") found.push_back(e.path().filename().string());
        return found;
    }
    size_t ErrLines() {
        std::string log = Log();
        size_t n = 0;
        for (size_t at = log.find(":Err: "); at != std::string::npos;
             at = log.find(":Err: ", at + 1))
            ++n;
        for (size_t at = log.find(": Err: "); at != std::string::npos;
             at = log.find(": Err: ", at + 1))
            ++n;
        return n;
    }
    bool IncidentSays(const std::string& text) {
        for (const Incident& i : Incidents())
            if (i.text.find(text) != std::string::npos) return true;
        return false;
    }

    BackupOptions options;
    RecordingProgress view;
};

TEST_F(BackupFaults, SourcesThatCannotBeReadKeepLastWeeksCopiesAndTheRunIsShownIncomplete) {
    ASSERT_TRUE(BackupData(0, false, options, view).Good());
    const std::vector<std::string> lastWeek = ReadAll(LocalDay() + "FRADA22.btr");
    // This week: more songs, but station A's file has a damaged header and station B's is held
    // exclusively by another program.
    for (int s = 1; s <= 2; ++s) {
        std::vector<std::string> songs;
        for (int n = 1; n <= 60; ++n) songs.push_back(Record(22, n));
        WriteFile(22, s, songs);
        WriteFile(29, s, {Record(29, 1), Record(29, 2), Record(29, 3)});
    }
    testing::Scribble(DataPath(22, 1), 1);
    engine::EngineFile holder;
    ASSERT_EQ(holder.Open(DataPath(22, 2), btr::kOpenExclusive), 0);
    clock->Advance(std::chrono::hours(1));
    ClearIncidents();

    BackupOutcome outcome = BackupData(0, false, options, view);
    holder.Close();
    EXPECT_TRUE(outcome.finished) << "a bad file ends only itself";
    EXPECT_EQ(outcome.Result(), progress::Outcome::Incomplete);
    EXPECT_EQ(outcome.failedNames, (std::vector<std::string>{"FRADA22.bt6", "FRADB22.bt6"}));
    for (const std::string& day : {LocalDay(), ServerDay()}) {
        EXPECT_EQ(ReadAll(day + "FRADA22.btr"), lastWeek) << day << ": last week's copy, whole";
        EXPECT_EQ(Count(day + "FRADB22.btr"), 45u) << day;
        EXPECT_EQ(Count(day + "FRADA29.btr"), 3u) << day << ": the good files are renewed";
        EXPECT_TRUE(Leftovers(day).empty()) << day;
    }
    // Shown on the tab as incomplete, beside its date, and named.
    const auto* recorded = view.Last<progress::BackupRecorded>();
    ASSERT_NE(recorded, nullptr);
    EXPECT_FALSE(recorded->complete);
    const auto* ended = view.Last<progress::Ended>();
    ASSERT_NE(ended, nullptr);
    EXPECT_EQ(ended->outcome, progress::Outcome::Incomplete);
    EXPECT_NE(ended->summary.find("FRADA22.bt6, FRADB22.bt6"), std::string::npos);
    EXPECT_EQ(BkSys("Date"), "23/11/2026 11:00:00") << "no error ended it: it is dated";
    EXPECT_TRUE(IncidentSays("Backup de la base Radio Test incomplet : 2 fichier(s) en échec"));
    EXPECT_EQ(LoadLastRun(0).result, "Incomplete");
    std::string log = Log();
    EXPECT_NE(log.find("Err: Unable to open source file: " + DataPath(22, 1)), std::string::npos);
    EXPECT_NE(log.find("Backup: Summary: Incomplete: base Radio Test: 3 files copied, 2 failed "
                       "(FRADA22.bt6, FRADB22.bt6)"),
              std::string::npos);
}

TEST_F(BackupFaults, AFullRootEndsTheRunAtTheFirstFailureWithOneMessageAndNoDate) {
    std::vector<std::string> songs;
    for (int n = 1; n <= 20000; ++n) songs.push_back(Record(22, n));
    WriteFile(22, 1, songs);
    ASSERT_GT(fs::file_size(DataPath(22, 1)), 6u << 20) << "more than the disk holds";
    auto disk = testing::ScopedMount::Tmpfs(dir.file("C/KV_Local/Data"), "2m");
    if (!disk.ok()) GTEST_SKIP() << "mounting a tmpfs is not permitted here";

    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_TRUE(outcome.failed) << Log();
    EXPECT_FALSE(outcome.finished);
    EXPECT_EQ(BkSys("Date"), "<none>") << "an error ended it: not dated";
    EXPECT_EQ(Marker("Start"), "0FF");
    ASSERT_EQ(dialogs.messages.size(), 1u) << "one message, not one per record";
    EXPECT_NE(dialogs.messages[0].text.find("plus de place sur le disque"), std::string::npos);
    EXPECT_NE(dialogs.messages[0].text.find("les copies précédentes restent en place"),
              std::string::npos);
    EXPECT_LE(ErrLines(), 4u) << Log();
    EXPECT_EQ(view.Last<progress::Ended>()->outcome, progress::Outcome::Failed);
    EXPECT_EQ(view.Last<progress::BackupRecorded>(), nullptr);
    EXPECT_TRUE(IncidentSays("Backup de la base Radio Test en échec : Ecriture impossible"));
    EXPECT_FALSE(fs::exists(LocalDay() + "FRADA22.btr"));
    EXPECT_FALSE(fs::exists(ServerDay() + "FRADB22.btr")) << "the run stopped at the first";
    EXPECT_TRUE(Leftovers(LocalDay()).empty());
    EXPECT_NE(Log().find("Backup: Summary: Failed"), std::string::npos);
}

TEST_F(BackupFaults, AReadOnlyRootEndsTheRunBeforeAnyCopy) {
    ASSERT_TRUE(BackupData(0, false, options, view).Good());
    auto readOnly = testing::ScopedMount::ReadOnly(dir.file("C/KV_Local/Data"));
    if (!readOnly.ok()) GTEST_SKIP() << "a read-only mount is not permitted here";
    dialogs.messages.clear();
    clock->Advance(std::chrono::hours(1));
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_TRUE(outcome.failed);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find("système de fichiers en lecture seule"),
              std::string::npos);
    EXPECT_EQ(BkSys("Date"), "23/11/2026 10:00:00") << "the last good run's date stays";
    EXPECT_NE(Log().find("Read-only file system: the backup stops here"), std::string::npos);
    readOnly.Unmount();
    EXPECT_EQ(Count(LocalDay() + "FRADA22.btr"), 45u);
}

TEST_F(BackupFaults, AMissingRootIsNeverCreated) {
    options.localBackupFolder = dir.folder() + "E/Unmounted/Backup/";
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_TRUE(outcome.failed);
    EXPECT_FALSE(fs::exists(dir.folder() + "E")) << "nothing made up on the system disk";
    EXPECT_FALSE(fs::exists(ServerDay())) << "nothing written on the other root either";
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text.rfind("Dossier '" + options.localBackupFolder +
                                                 "' non trouvé\r\n\r\nLe disque ou le partage",
                                             0),
              0u);
    EXPECT_EQ(BkSys("Date"), "<none>");
    EXPECT_TRUE(IncidentSays("non trouvé"));
    EXPECT_NE(Log().find("Backup: Err: Backup root not found: " + options.localBackupFolder),
              std::string::npos);
}

TEST_F(BackupFaults, ARunAcrossMidnightRecordsTheDayItWrote) {
    clock->Set(MakeLocalTime(2026, 11, 23, 23, 59, 30));  // Monday
    bool moved = false;
    SetEventPump([&] {
        if (!moved) clock->Advance(std::chrono::minutes(2));
        moved = true;
    });
    ASSERT_TRUE(BackupData(0, false, options, view).Good());
    EXPECT_EQ(Count(LocalDay("Lundi") + "FRADA22.btr"), 45u);
    EXPECT_FALSE(fs::exists(LocalDay("Mardi")));
    EXPECT_EQ(BkSys("Lundi"), "24/11/2026 00:01:30") << "the folder written, the time it ended";
    EXPECT_EQ(BkSys("Mardi"), "<none>");
    EXPECT_EQ(view.Last<progress::BackupRecorded>()->weekday, 1);
}

TEST_F(BackupFaults, StopWorksWhilePausedAndKeepsLastWeeksCopy) {
    ASSERT_TRUE(BackupData(0, false, options, view).Good());
    const std::string lastWeek = LocalDay() + "FRADA22.btr";
    int calls = 0;
    std::string startWhilePaused;
    SetEventPump([&] {
        ++calls;
        if (calls == 3) CommandBkpPause_Click(0, view);  // within station A's songs
        if (calls == 5) {
            startWhilePaused = Marker("Start");
            CommandBkpStop_Click(0);  // still paused
        }
        if (calls > 1000) CommandBkpPause_Click(0, view);  // would end a pause Stop ignored
    });
    dialogs.QueueAnswer(MsgAnswer::No);   // not the whole history
    dialogs.QueueAnswer(MsgAnswer::Yes);  // yes, stop
    clock->Advance(std::chrono::hours(1));
    CommandBkpNow_Click(0, view);
    SetEventPump(nullptr);
    EXPECT_LT(calls, 1000) << "the stop ended the pause";
    EXPECT_EQ(startWhilePaused, "0FF");
    EXPECT_EQ(dialogs.messages.back().text, "Voulez-vous stopper le backup des données ?");
    const auto* ended = view.Last<progress::Ended>();
    ASSERT_NE(ended, nullptr);
    EXPECT_EQ(ended->outcome, progress::Outcome::Stopped);
    EXPECT_FALSE(Operations().paused[0]);
    EXPECT_FALSE(view.Last<progress::Paused>()->paused);
    EXPECT_EQ(Marker("Start"), "0FF");
    EXPECT_EQ(Marker("Pause"), "0FF");
    EXPECT_EQ(BkSys("Date"), "23/11/2026 10:00:00") << "a stopped run is not a backup";
    EXPECT_EQ(Count(lastWeek), 45u);
    EXPECT_TRUE(Leftovers(LocalDay()).empty());
    EXPECT_NE(Log().find("Backup: Stopped: Last week's copy kept: " + lastWeek), std::string::npos);
    EXPECT_NE(Log().find("Backup: Summary: Stopped"), std::string::npos);
}

TEST_F(BackupFaults, APlannedRunAnswersEveryQuestionUnattendedAndLogsEachAnswer) {
    // Every box the backup can raise would open here: one root for both copies, a damaged
    // source with the key dialog on (its own boxes and the access layer's report).
    std::vector<std::string> songs;
    for (int n = 1; n <= 2500; ++n) songs.push_back(Record(22, n));
    WriteFile(22, 1, songs);
    auto leaves = testing::LeafPages(DataPath(22, 1), "records");
    ASSERT_GT(leaves.size(), 10u);
    testing::Scribble(DataPath(22, 1), leaves[leaves.size() / 2].first);
    options.localBackupFolder = options.serverDataFolder;
    options.keyOnError = true;
    SaveBackupOptions(0, options);

    clock->Set(MakeLocalTime(2026, 11, 23, 2, 1, 50));
    Scheduler scheduler;
    scheduler.Load();
    scheduler.Plan(0).backup.active = true;  // every day at 02:02
    scheduler.Save(0);
    clock->Advance(std::chrono::seconds(30));
    scheduler.TimerMain_Timer();

    EXPECT_TRUE(dialogs.messages.empty()) << dialogs.messages.front().text;
    EXPECT_TRUE(dialogs.prompts.empty());
    std::string log = Log();
    EXPECT_NE(log.find("Schedule: Start Backup"), std::string::npos);
    EXPECT_NE(log.find("Backup: Ended. Duration"), std::string::npos);
    for (const char* asked :
         {"Unattended: Message: 'Err: Copie locale impossible: Source = Cible: ",
          "Unattended: Message: 'Fichier endommagé. Vous allez devoir saisir une clé",
          "Unattended: Input: 'Clé (supérieure) à partir de laquelle il faut reprendre la "
          "sauvegarde' |Answer: Annuler",
          "Err: 2: The application encountered an I/O error"})
        EXPECT_NE(log.find(asked), std::string::npos) << asked;
    EXPECT_NE(log.find("|Answer: OK"), std::string::npos);
    EXPECT_EQ(LoadLastRun(0).result, "Incomplete");
    EXPECT_TRUE(scheduler.Backup(0).armed);
    EXPECT_EQ(scheduler.Backup(0).next, MakeLocalTime(2026, 11, 24, 2, 2, 0));
}

}  // namespace
}  // namespace toverin
