// The real toverinctl killed (SIGKILL: no chance to tidy up) in the middle of a backup and of a
// restore, at several instants: every backup copy is last week's or a complete new one, every
// live file is as it was or fully restored, each passes the integrity check, and the sources are
// untouched.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include "app/Site.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using testing::RunCaptured;
using testing::TempDir;

pid_t StartCtl(const std::vector<std::string>& args) {
    pid_t pid = fork();
    if (pid == 0) {
        std::string exe = std::string(TOVERIN_BINARY_DIR) + "/main/toverinctl";
        std::vector<std::string> words{exe};
        words.insert(words.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
        if (!freopen("/dev/null", "w", stderr) || !freopen("/dev/null", "w", stdout)) _exit(126);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

// Runs toverinctl to its end; its exit status and how long it took.
std::pair<int, double> RunCtl(const std::vector<std::string>& args) {
    const auto start = Clock::now();
    int status = 0;
    waitpid(StartCtl(args), &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            std::chrono::duration<double>(Clock::now() - start).count()};
}

// Starts toverinctl and kills it after `seconds`; true when it was still running then.
bool KillAfter(const std::vector<std::string>& args, double seconds) {
    pid_t pid = StartCtl(args);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const bool running = waitpid(pid, nullptr, WNOHANG) == 0;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return running;
}

struct FileState {
    ino_t inode = 0;
    long long records = -1;
};

long long Records(const std::string& path) {
    engine::EngineFile file;
    if (file.Open(path, btr::kOpenReadOnly) != btr::kSuccess) return -1;
    btr::PbTBtrFileBuf fileBuf;
    if (file.Stat(fileBuf) != btr::kSuccess) return -1;
    return static_cast<long long>(fileBuf.RecordCount);
}

// The record files of a folder (".btr" or ".bt6"), by name.
std::map<std::string, FileState> Snapshot(const std::string& folder, const std::string& ext) {
    std::map<std::string, FileState> files;
    for (const auto& e : fs::directory_iterator(folder)) {
        if (e.path().extension() != ext) continue;
        struct stat st {};
        stat(e.path().c_str(), &st);
        files[e.path().filename().string()] = {st.st_ino, Records(e.path().string())};
    }
    return files;
}

bool Checks(const std::string& path) {
    return RunCaptured({"file", "check", path}).status == 0;
}

class KilledRuns : public ::testing::Test {
  protected:
    void SetUp() override {
        root = dir.folder() + "site/";
        ASSERT_EQ(RunCaptured({"demo", "create", root, "--size", "small"}).status, 0);
        data = root + "C/KV_Data/Base1/";
        sources = Snapshot(data, ".bt6");
    }
    void TearDown() override {
        ResetSite();
        ResetRecordAccess();
    }
    std::vector<std::string> DayFolders() {
        std::vector<std::string> days;
        for (const std::string& r : {data, root + "D/KV_Local/Base1/KV_Data/"})
            for (const auto& e : fs::directory_iterator(r + "_Backup"))
                days.push_back(e.path().string() + "/");
        return days;
    }

    TempDir dir;
    std::string root, data;
    std::map<std::string, FileState> sources;
};

TEST_F(KilledRuns, ABackupKilledAnywhereLeavesLastWeeksCopyOrACompleteNewOne) {
    const std::vector<std::string> backup = {"backup", "--root", root, "--base", "0", "--all"};
    auto [status, seconds] = RunCtl(backup);
    ASSERT_EQ(status, 0);
    std::vector<std::string> days = DayFolders();
    ASSERT_EQ(days.size(), 2u);
    std::map<std::string, std::map<std::string, FileState>> lastWeek;
    for (const std::string& day : days) lastWeek[day] = Snapshot(day, ".btr");
    ASSERT_GT(lastWeek[days[0]].size(), 100u);

    int midRun = 0;
    int renewed = 0, kept = 0;
    for (double fraction : {0.1, 0.3, 0.5, 0.7, 0.9}) {
        midRun += KillAfter(backup, seconds * fraction);
        for (const std::string& day : days) {
            const auto now = Snapshot(day, ".btr");
            ASSERT_EQ(now.size(), lastWeek[day].size()) << day << ": no copy lost";
            for (const auto& [name, state] : now) {
                const FileState& before = lastWeek[day][name];
                EXPECT_EQ(state.records, before.records) << day << name << ": whole";
                (state.inode == before.inode ? kept : renewed)++;
            }
            lastWeek[day] = now;
        }
    }
    EXPECT_GE(midRun, 3) << "the kills fell within the runs";
    EXPECT_GT(renewed, 0);
    EXPECT_GT(kept, 0);
    for (const std::string& day : days) {
        for (const auto& [name, state] : lastWeek[day]) {
            EXPECT_TRUE(Checks(day + name)) << name;
        }
    }
    // The sources were only read.
    const auto after = Snapshot(data, ".bt6");
    for (const auto& [name, state] : sources)
        EXPECT_EQ(after.at(name).records, state.records) << name;
}

TEST_F(KilledRuns, ARestoreKilledAnywhereLeavesEachLiveFileAsItWasOrComplete) {
    ASSERT_EQ(RunCtl({"backup", "--root", root, "--base", "0", "--all"}).first, 0);
    const std::string day = fs::path(DayFolders()[0]).parent_path().filename().string();
    const auto backups = Snapshot(data + "_Backup/" + day + "/", ".btr");
    // The live files moved on: the songs and schedules of every station emptied since.
    ASSERT_EQ(RunCaptured({"create", "--root", root, "--base", "0", "--stations", "all", "--files",
                           "22,27,28", "--yes"})
                  .status,
              0);
    const auto live = Snapshot(data, ".bt6");
    const std::vector<std::string> args = {"restore", "--root",  root,      "--base",
                                           "0",       "--day",   day,       "--stations",
                                           "1-3",     "--files", "22,27,28"};

    int midRun = 0;
    for (double seconds : {0.3, 0.8, 1.5, 2.5}) {
        midRun += KillAfter(args, seconds);
        const auto now = Snapshot(data, ".bt6");
        for (const auto& [name, state] : now) {
            const long long before = live.at(name).records;
            const std::string backupName = name.substr(0, name.size() - 4) + ".btr";
            const long long whole =
                backups.count(backupName) ? backups.at(backupName).records : before;
            EXPECT_TRUE(state.records == before || state.records == whole)
                << name << ": " << state.records << " records, neither " << before << " nor "
                << whole;
            EXPECT_TRUE(Checks(data + name)) << name;
        }
        // The day's log names the file that was being restored.
        std::string log;
        for (const auto& e : fs::directory_iterator(root + "C/AudioLog/Base1"))
            log += testing::ReadFile(e.path());
        const size_t last = log.rfind("Restore started. File:       ");
        ASSERT_NE(last, std::string::npos);
        EXPECT_NE(log.find(data + "FRAD", last), std::string::npos);
    }
    EXPECT_GE(midRun, 3);
}

}  // namespace
}  // namespace toverin
