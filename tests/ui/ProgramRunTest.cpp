// The real program, started as a service manager would start it: no display, a command line of
// several options, stopped with SIGTERM.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "app/Ini.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

std::string DayLog(const std::string& folder) {
    std::string all;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(folder, ec))
        if (e.path().extension() == ".Log") all += ReadFile(e.path());
    return all;
}

// Starts the program without a display; its standard output and error go to `output` when given.
pid_t StartProgram(const TempDir& dir, const std::vector<std::string>& options,
                   const std::string& output = "/dev/null") {
    pid_t pid = fork();
    if (pid == 0) {
        unsetenv("DISPLAY");
        unsetenv("WAYLAND_DISPLAY");
        unsetenv("QT_QPA_PLATFORM");
        setenv("TOVERIN_REGISTRY", dir.file("Registry.ini").c_str(), 1);
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        std::string exe = std::string(TOVERIN_BINARY_DIR) + "/main/toverin";
        std::vector<std::string> words{exe, "--root", dir.folder()};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char*> argv;
        for (auto& w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
        if (!freopen(output.c_str(), "w", stdout)) _exit(126);
        if (dup2(fileno(stdout), fileno(stderr)) < 0) _exit(126);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

// Kills the program if the test ends before it did.
struct ChildGuard {
    pid_t& pid;
    ~ChildGuard() {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
};

bool WaitFor(const std::function<bool()>& condition, int seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

TEST(ProgramRun, OffscreenStartWritesTheLogAndSigtermUnloadsInOrder) {
    TempDir dir;
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\r\nNbBase=2\r\n[Base_01]\r\nLib=Nord\r\nDossier_Data=C:\\D1\\\r\n"
              "[Base_02]\r\nLib=Sud\r\nDossier_Data=C:\\D2\\\r\n"
              "Dossier_Config_Global=C:\\Cfg2\\\r\n");
    WriteFile(dir.file("C/D1/FRAD000.bt6"), "");
    WriteFile(dir.file("C/D2/FRAD000.bt6"), "");
    pid_t pid = 0;
    ChildGuard guard{pid};
    pid = StartProgram(dir, {"/Wait=200", "/ip=192.168.1.20", "/PORT=5000", "/Backup_Base=x"});
    std::string logFolder = dir.file("C/AudioLog");
    // "/Backup_Base=" asks for the one-shot backup and the program then ends by itself; without it
    // the program keeps running until told to stop. Here the option is there, so it must end.
    int status = 0;
    ASSERT_TRUE(WaitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; }, 30));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::string log = DayLog(logFolder);
    EXPECT_NE(log.find("==:==:==:====:=:=:=:System started since "), std::string::npos);
    EXPECT_NE(log.find(":Command Line: '/Wait=200 /ip=192.168.1.20 /PORT=5000 /Backup_Base=x'"),
              std::string::npos);
    EXPECT_NE(log.find(":WaitDuration: 200\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Backup Base: 0\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Target IP Address: 192.168.1.20\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Target IP Port: 5000\r\n"), std::string::npos);
    EXPECT_NE(log.find(":----- Init: Duration: "), std::string::npos);
    EXPECT_NE(log.find(":Form closed by code action\r\n"), std::string::npos);

    // A plain start keeps running; SIGTERM closes it as a system shutdown would.
    std::filesystem::remove_all(logFolder);
    pid = StartProgram(dir, {"/IP=10.0.0.1"});
    ASSERT_TRUE(
        WaitFor([&] { return DayLog(logFolder).find("Id Radio: Nord") != std::string::npos; }, 30));
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0) << "still running";
    kill(pid, SIGTERM);
    ASSERT_TRUE(WaitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; }, 30));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    log = DayLog(logFolder);
    EXPECT_NE(log.find(":Form closed because Windows is shutting down\r\n"), std::string::npos);
    EXPECT_NE(log.find(":---------- Form_Unload: Start\r\n"), std::string::npos);
    EXPECT_EQ(LectureIni(dir.file("Settings/Base_01/BK_PRG.ini"), "Data_Backup", "Start", ""),
              "0FF");
    EXPECT_EQ(LectureIni(dir.file("C/Cfg2/BK_PRG.ini"), "Data_Backup", "Start", ""), "0FF");
}

void WriteSite(const TempDir& dir) {
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\r\nNbBase=1\r\n[Base_01]\r\nLib=Nord\r\nDossier_Data=C:\\D1\\\r\n");
    WriteFile(dir.file("C/D1/FRAD000.bt6"), "");
}

int WaitExit(pid_t pid, int seconds) {
    int status = 0;
    if (!WaitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; }, seconds)) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// SIGTERM during "/Wait=" ends the program at once, and the backup the command line asked for
// never starts.
TEST(ProgramRun, SigtermDuringTheStartupWaitEndsAtOnceWithoutTheBackup) {
    TempDir dir;
    WriteSite(dir);
    pid_t pid = 0;
    ChildGuard guard{pid};
    pid = StartProgram(dir, {"/Wait=2147483647", "/Backup_Base=0"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "waiting";
    auto start = std::chrono::steady_clock::now();
    kill(pid, SIGTERM);
    EXPECT_EQ(WaitExit(pid, 10), 0);
    pid = 0;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_FALSE(std::filesystem::exists(dir.file("C/D1/_Backup"))) << "no backup";
    EXPECT_FALSE(std::filesystem::exists(dir.file("Settings/Base_01/BK_PRG.ini")));

    // Beyond its 32-bit field the value reads as 0: no wait at all, the backup runs and ends.
    pid = StartProgram(dir, {"/Wait=2147483648", "/Backup_Base=0"});
    EXPECT_EQ(WaitExit(pid, 30), 0);
    pid = 0;
    std::string log = DayLog(dir.file("C/AudioLog"));
    EXPECT_NE(log.find(":WaitDuration: 0\r\n"), std::string::npos);
    EXPECT_NE(log.find("Backup: Started"), std::string::npos);
}

// A second start, refused, says so on standard error (a service's log) and leaves the first one in
// standby.
TEST(ProgramRun, ASecondStartIsRefusedOnStandardErrorAndTheFirstStaysInStandby) {
    TempDir dir;
    WriteSite(dir);
    pid_t first = 0, second = 0;
    ChildGuard guardFirst{first}, guardSecond{second};
    const std::string logFolder = dir.file("C/AudioLog");
    first = StartProgram(dir, {"/Veille=True"});
    ASSERT_TRUE(
        WaitFor([&] { return DayLog(logFolder).find("Standby: Start") != std::string::npos; }, 30));
    second = StartProgram(dir, {}, dir.file("second.txt"));
    EXPECT_EQ(WaitExit(second, 40), 0) << "after its 15-second wait";
    second = 0;
    EXPECT_EQ(ReadFile(dir.file("second.txt")),
              "Toverin: Application encore chargée en mémoire. Veuillez la quitter avant de "
              "relancer une autre instance de cette application.\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    std::string log = DayLog(logFolder);
    EXPECT_EQ(log.find("Standby: End"), std::string::npos) << "the first stays in standby";
    EXPECT_EQ(waitpid(first, nullptr, WNOHANG), 0) << "and keeps running";
    kill(first, SIGTERM);
    EXPECT_EQ(WaitExit(first, 30), 0);
    first = 0;
}

TEST(ProgramRun, HelpAndVersionPrintAndEndWithoutStarting) {
    TempDir dir;
    pid_t pid = 0;
    ChildGuard guard{pid};
    pid = StartProgram(dir, {"--help"}, dir.file("help.txt"));
    EXPECT_EQ(WaitExit(pid, 10), 0);
    std::string help = ReadFile(dir.file("help.txt"));
    EXPECT_NE(help.find("Usage: toverin [--root DOSSIER] [/Wait=ms] [/Backup_Base=N]"),
              std::string::npos)
        << help;
    for (const char* option : {"--root DOSSIER", "/Wait=ms", "/Backup_Base=N", "/IP=a.b.c.d",
                               "/Port=n", "/Veille=True", "--version"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
    pid = StartProgram(dir, {"/Veille=True", "--version"}, dir.file("version.txt"));
    EXPECT_EQ(WaitExit(pid, 10), 0);
    pid = 0;
    EXPECT_EQ(ReadFile(dir.file("version.txt")), "Kavella: Toverin 3.4.0\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("Settings"))) << "the program did not start";
}

}  // namespace
}  // namespace toverin
