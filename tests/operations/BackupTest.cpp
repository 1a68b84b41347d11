#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Startup.h"
#include "operations/Backup.h"
#include "operations/OperationState.h"
#include "store/Catalogue.h"
#include "store/RecordView.h"
#include "tests/operations/SiteFixture.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::SiteFixture;

class Backup : public SiteFixture {
  protected:
    void SetUp() override {
        MakeSite(2);
        for (int s = 1; s <= 2; ++s) {
            std::vector<std::string> songs;
            for (int n = 1; n <= 45; ++n) songs.push_back(Record(22, n));
            WriteFile(22, s, songs);
            std::string sites = Record(29, 90);
            RecordView(29, sites).SetText("Header", "SITES");
            WriteFile(29, s, {Record(29, 1), Record(29, 2), sites});
            WriteFile(
                7, s,
                {Record(7, 1, DaysAgo(1)), Record(7, 2, DaysAgo(3)), Record(7, 3, DaysAgo(10)),
                 Record(7, 4, DaysAgo(40)), Record(7, 5, "19000101"), Record(7, 6, "19001231")});
            WriteFile(
                35, s,
                {Record(35, 1, DaysAgo(2)), Record(35, 2, DaysAgo(20)), Record(35, 3, DaysAgo(0))});
        }
        WriteFile(11, 1, {Record(11, 1)});
        options = Options();
        options.files.fill(false);
        for (int f : {0, 7, 11, 22, 29, 35}) options.files[f] = true;
    }
    std::string ServerDay() const { return dir.folder() + "C/KV_Data/_Backup/Lundi/"; }
    std::string LocalDay() const { return dir.folder() + "C/KV_Local/Data/_Backup/Lundi/"; }
    size_t Count(const std::string& path) { return ReadAll(path).size(); }
    std::string Marker(const char* key) {
        return LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", key, "<none>");
    }

    BackupOptions options;
    RecordingView view;
};

TEST_F(Backup, LimitedBackupWritesTheWeekdayFolderOnBothRootsWithTheKeptRecords) {
    BackupOutcome outcome = BackupData(0, false, options, view);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(outcome.failedFiles, 0);
    for (const std::string& day : {ServerDay(), LocalDay()}) {
        EXPECT_EQ(Count(day + "FRAD000.btr"), 3u) << day;
        EXPECT_EQ(Count(day + "FRADA22.btr"), 45u);
        EXPECT_EQ(Count(day + "FRADB22.btr"), 45u);
        EXPECT_EQ(Count(day + "FRADA29.btr"), 2u) << "SITES records stay behind";
        // Seven days of history, plus the undated 1900 spot dates.
        EXPECT_EQ(Count(day + "FRADA07.btr"), 4u);
        EXPECT_EQ(Count(day + "FRADB35.btr"), 2u);
        EXPECT_FALSE(fs::exists(day + "FRAD011.btr")) << "user rights are not backed up";
        EXPECT_TRUE(fs::exists(day + "Config/KV3_Systeme.ini"));
        EXPECT_TRUE(fs::exists(day + "Config/BK_PRG.ini"));
    }
    EXPECT_EQ(Marker("Start"), "0FF");
    std::string bkSys = dir.file("C/KV_Config/Bk_Sys.ini");
    EXPECT_EQ(LectureIni(bkSys, "Sauvegarde", "Date", ""), "23/11/2026 10:00:00");
    EXPECT_EQ(LectureIni(bkSys, "Sauvegarde", "Lundi", ""), "23/11/2026 10:00:00");
    EXPECT_EQ(view.Text("TexteDatePrevBkp", 0), "lundi 23 novembre 2026 10:00:00");
    EXPECT_EQ(view.Text("TexteRestaurationDate", 0), "lundi 23 novembre 2026 10:00:00");
    EXPECT_EQ(view.busyCaption,
              "Kavella: Toverin - V 3.4.0 - Backup en cours de la base Radio Test");
    EXPECT_FALSE(Operations().busy);

    std::string log = Log();
    for (const char* line :
         {":===============\r\n", ":Backup: Started\r\n",
          ":Backup: Créer le backup en local et le recopier sur le serveur\r\n",
          ":Backup: Source file: ", ":Backup: Target server file: ", ":Backup: File created: ",
          ":Backup: Ended: Records: 45 / 45\r\n", ":Backup: Ended: Records: 4 / 6\r\n",
          ":Backup: Ended. Duration: 0 min 00 s\r\n"})
        EXPECT_NE(log.find(line), std::string::npos) << line;
    EXPECT_EQ(log.find("FRADB00"), std::string::npos) << "a common file is backed up once";
}

TEST_F(Backup, FullBackupKeepsEveryHistoryRecord) {
    ASSERT_TRUE(BackupData(0, true, options, view).finished);
    EXPECT_EQ(Count(LocalDay() + "FRADA07.btr"), 6u);
    EXPECT_EQ(Count(ServerDay() + "FRADA35.btr"), 3u);
    // The copy holds the very bytes of the source's records.
    EXPECT_EQ(ReadAll(ServerDay() + "FRADB22.btr"), ReadAll(DataPath(22, 2)));
}

// Files copied from a Windows machine keep the case they were given there.
TEST_F(Backup, DataFilesNamedInAnotherCaseAreBackedUp) {
    fs::rename(DataPath(22, 1), dir.file("C/KV_Data/frada22.BT6"));
    fs::rename(DataPath(7, 2), dir.file("C/KV_Data/FRADB07.BT6"));
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_EQ(outcome.failedFiles, 0) << Log();
    EXPECT_EQ(Count(ServerDay() + "FRADA22.btr"), 45u);
    EXPECT_EQ(Count(LocalDay() + "FRADB07.btr"), 4u);
}

TEST_F(Backup, HistoryDaysAreAtLeastFiveAndTakenAsAbsoluteValue) {
    EXPECT_EQ(HistoryDays("2"), 5);
    EXPECT_EQ(HistoryDays("-3"), 5);
    EXPECT_EQ(HistoryDays("-12"), 12);
    EXPECT_EQ(HistoryDays(" 30 "), 30);
    EXPECT_EQ(HistoryDays("abc"), 5);
    options.historyDaysText = "-2";  // five days: today-1 and today-3 of file 7, plus 1900
    ASSERT_TRUE(BackupData(0, false, options, view).finished);
    EXPECT_EQ(Count(LocalDay() + "FRADA07.btr"), 4u);
    EXPECT_EQ(Count(LocalDay() + "FRADA35.btr"), 2u);
}

TEST_F(Backup, OnASundayTheServerCopyGoesFirstIntoDimanche) {
    clock->Set(MakeLocalTime(2026, 11, 29, 2, 2, 0));
    options.optionBackup = 1;
    ASSERT_TRUE(BackupData(0, false, options, view).finished);
    EXPECT_TRUE(fs::exists(dir.file("C/KV_Data/_Backup/Dimanche/FRADA22.btr")));
    EXPECT_TRUE(fs::exists(dir.file("C/KV_Local/Data/_Backup/Dimanche/FRADA22.btr")));
    EXPECT_NE(Log().find("Backup: Open target server file: "), std::string::npos);
    EXPECT_EQ(view.Text("TexteRestaurationDate", 6), "dimanche 29 novembre 2026 02:02:00");
}

TEST_F(Backup, IdenticalRootsCopyOnceAndSaySo) {
    options.localBackupFolder = options.serverDataFolder;
    ASSERT_TRUE(BackupData(0, false, options, view).finished);
    EXPECT_EQ(Count(ServerDay() + "FRADA22.btr"), 45u);
    EXPECT_NE(Log().find("Err: Local Backup unable: Source Folder = Target Folder: "),
              std::string::npos);
    EXPECT_NE(dialogs.messages.back().text.find("Err: Copie locale impossible: Source = Cible: "),
              std::string::npos);
}

TEST_F(Backup, MissingSourceAndUndeletableTargetSkipOnlyThatStationFile) {
    fs::remove(DataPath(22, 2));
    fs::create_directories(LocalDay() + "FRADA29.btr/blocker");  // cannot be deleted as a file
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_EQ(outcome.failedFiles, 2);
    std::string log = Log();
    EXPECT_NE(log.find("Backup: Err: Source file not found: " + DataPath(22, 2)),
              std::string::npos);
    EXPECT_NE(log.find("Err: Unable to delete " + LocalDay() + "FRADA29.btr"), std::string::npos);
    EXPECT_EQ(Count(LocalDay() + "FRADA22.btr"), 45u);
    EXPECT_EQ(Count(LocalDay() + "FRADB29.btr"), 2u);
}

TEST_F(Backup, ASecondStartDuringARunDoesNothing) {
    int calls = 0;
    BackupOutcome inner;
    SetEventPump([&] {
        if (++calls == 1) inner = BackupData(0, false, options, view);
    });
    BackupOutcome outer = BackupData(0, false, options, view);
    SetEventPump(nullptr);
    EXPECT_TRUE(outer.finished);
    EXPECT_FALSE(inner.started);
}

TEST_F(Backup, StopAsksAndYesEndsWithoutRecordingTheDate) {
    SetEventPump([&] { Operations().stopRequested[0] = true; });
    dialogs.QueueAnswer(MsgAnswer::No);   // go on
    dialogs.QueueAnswer(MsgAnswer::Yes);  // then stop
    BackupOutcome outcome = BackupData(0, true, options, view);
    SetEventPump(nullptr);
    EXPECT_TRUE(outcome.stopped);
    EXPECT_FALSE(outcome.finished);
    int asked = 0;
    for (const auto& m : dialogs.messages)
        asked += m.text == "Voulez-vous stopper le backup des données ?";
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(LectureIni(dir.file("C/KV_Config/Bk_Sys.ini"), "Sauvegarde", "Date", "<none>"),
              "<none>");
    EXPECT_EQ(Marker("Start"), "0FF");
}

TEST_F(Backup, PauseMarksTheBaseAndWaitsUntilResumed) {
    std::string startDuringPause, pauseDuringPause;
    int calls = 0;
    SetEventPump([&] {
        ++calls;
        if (calls == 1) CommandBkpPause_Click(0, view);
        if (calls == 3) {
            startDuringPause = Marker("Start");
            pauseDuringPause = Marker("Pause");
            CommandBkpPause_Click(0, view);
        }
    });
    ASSERT_TRUE(BackupData(0, false, options, view).finished);
    SetEventPump(nullptr);
    EXPECT_EQ(startDuringPause, "0FF");
    EXPECT_EQ(pauseDuringPause, "ON");
    EXPECT_EQ(Marker("Pause"), "0FF");
    EXPECT_EQ(view.Text("CommandBkpPause", 0), "Pause");
}

TEST_F(Backup, NowAsksForAFullBackup) {
    SaveBackupOptions(0, options);  // the button reads the saved settings
    dialogs.QueueAnswer(MsgAnswer::Yes);
    CommandBkpNow_Click(0, view);
    ASSERT_FALSE(dialogs.messages.empty());
    EXPECT_EQ(dialogs.messages[0].text,
              "Voulez-vous sauvegarder toutes les données (sans tenir compte du nombre de jours "
              "d'historique à sauvegarder) ?");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_EQ(Count(LocalDay() + "FRADA07.btr"), 6u) << "Yes: full backup";
}

}  // namespace
}  // namespace toverin

namespace toverin {
namespace {

// The players hear of each file and of the end; nothing is sent when none is configured.
TEST_F(Backup, PlayersAreToldOfEachFileAndOfTheEnd) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    socklen_t len = sizeof addr;
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    timeval timeout{0, 200000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

    Startup().TargetIPAddress = "127.0.0.1";
    Startup().TargetIPPort = ntohs(addr.sin_port);
    ASSERT_TRUE(BackupData(0, false, options, view).finished);
    Startup().TargetIPAddress.clear();
    Startup().TargetIPPort = 0;

    std::vector<std::string> heard;
    char buf[512];
    ssize_t n;
    while ((n = recv(fd, buf, sizeof buf, 0)) > 0) heard.emplace_back(buf, static_cast<size_t>(n));
    close(fd);
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.back(), "<Ended>");
    EXPECT_NE(std::find(heard.begin(), heard.end(), "Morceaux Station: 2"), heard.end());
}

}  // namespace
}  // namespace toverin
