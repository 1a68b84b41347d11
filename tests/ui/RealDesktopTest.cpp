// The real program on a real X server with a window manager (Xvfb and openbox), driven by the
// pointer as a user drives it (xdotool): what the offscreen platform cannot show, menus grabbing
// the pointer included.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

// Starts `argv` with DISPLAY set to `display` (when not empty) and without the offscreen platform
// of the test run; standard output goes to `output`.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& display,
            const std::string& output = "/dev/null", int keepFd = -1) {
    pid_t pid = fork();
    if (pid == 0) {
        unsetenv("QT_QPA_PLATFORM");
        unsetenv("WAYLAND_DISPLAY");
        if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
        int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out >= 0) {
            dup2(out, STDOUT_FILENO);
            dup2(out, STDERR_FILENO);
        }
        for (int fd = 3; fd < 256; ++fd)
            if (fd != keepFd) close(fd);
        std::vector<char*> args;
        std::vector<std::string> copy = argv;
        for (auto& a : copy) args.push_back(a.data());
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// Runs a command to its end and gives its output.
std::string RunCommand(const std::vector<std::string>& argv, const std::string& display,
                       const TempDir& dir) {
    std::string out = dir.file("run.out");
    pid_t pid = Spawn(argv, display, out);
    waitpid(pid, nullptr, 0);
    return ReadFile(out);
}

bool WaitFor(const std::function<bool()>& condition, int seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

struct Process {
    pid_t pid = 0;
    ~Process() { Stop(); }
    void Stop() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            if (!WaitFor([&] { return waitpid(pid, nullptr, WNOHANG) == pid; }, 10)) {
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        }
        pid = 0;
    }
};

// An X server of its own on a display it chooses, and openbox managing its windows.
class RealDesktop : public ::testing::Test {
  protected:
    void SetUp() override {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        xvfb.pid = Spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0",
                          "1280x1024x24", "-nolisten", "tcp"},
                         "", dir.file("xvfb.log"), fds[1]);
        close(fds[1]);
        std::string number;
        char c;
        while (read(fds[0], &c, 1) == 1 && c != '\n') number.push_back(c);
        close(fds[0]);
        ASSERT_FALSE(number.empty()) << "Xvfb did not start: " << ReadFile(dir.file("xvfb.log"));
        display = ":" + number;
        wm.pid = Spawn({"openbox"}, display, dir.file("openbox.log"));
        ASSERT_TRUE(WaitFor(
            [&] {
                return RunCommand({"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}, display, dir)
                           .find("window id") != std::string::npos;
            },
            20))
            << "openbox did not start";
    }
    void TearDown() override {
        program.Stop();
        wm.Stop();
        xvfb.Stop();
    }
    std::string Xdotool(const std::vector<std::string>& args) {
        std::vector<std::string> argv{"xdotool"};
        argv.insert(argv.end(), args.begin(), args.end());
        return RunCommand(argv, display, dir);
    }
    std::string Log() {
        std::string all;
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(dir.file("C/AudioLog"), ec))
            if (e.path().extension() == ".Log") all += ReadFile(e.path());
        return all;
    }

    TempDir dir;
    std::string display;
    Process xvfb, wm, program;
};

// A click on "Fichier" whose pointer slips down before the button comes up ends on
// "Mise en veille", the first item, right under the title. It used to choose it and hide the
// window; the item must be chosen only by a click of its own.
TEST_F(RealDesktop, AClickOnFichierNeverEntersStandby) {
    WriteFile(dir.file("Settings/KV3_Config.ini"),
              "[Site]\r\nNbBase=1\r\n[Base_01]\r\nLib=Nord\r\nDossier_Data=C:\\D1\\\r\n");
    WriteFile(dir.file("C/D1/FRAD000.bt6"), "");
    setenv("TOVERIN_REGISTRY", dir.file("Registry.ini").c_str(), 1);
    setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
    program.pid = Spawn({std::string(TOVERIN_BINARY_DIR) + "/main/toverin", "--root", dir.folder()},
                        display, dir.file("program.out"));
    unsetenv("TOVERIN_REGISTRY");
    unsetenv("XDG_DATA_HOME");
    ASSERT_TRUE(WaitFor([&] { return Log().find("Id Radio: Nord") != std::string::npos; }, 30))
        << ReadFile(dir.file("program.out"));
    // The main window, by the caption it has once loaded (the splash has gone by then).
    std::string window;
    ASSERT_TRUE(WaitFor(
        [&] {
            window =
                Xdotool({"search", "--onlyvisible", "--name", "^Nord - V .* - Kavella: Toverin$"});
            return !window.empty();
        },
        30));
    window = window.substr(0, window.find('\n'));
    Xdotool({"windowactivate", "--sync", window});

    // Press on "Fichier", slip 20 pixels down onto "Mise en veille", release.
    Xdotool({"mousemove", "--window", window, "30", "10"});
    Xdotool({"mousedown", "1"});
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (int step = 0; step < 4; ++step) {
        Xdotool({"mousemove_relative", "0", "5"});
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    Xdotool({"mouseup", "1"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(Log().find("Standby: Start"), std::string::npos)
        << "the click on Fichier chose Mise en veille";
    EXPECT_FALSE(Xdotool({"search", "--onlyvisible", "--name", "^Nord - V"}).empty());
    // The release did land on the item, and was not taken as a choice.
    EXPECT_NE(Log().find("Menu: 'Mise en veille' not chosen by the release of the press that "
                         "opened the menu"),
              std::string::npos);

    // The menu is still open on the item: a click of its own takes it. Without a tray the window
    // goes to the task bar.
    Xdotool({"click", "1"});
    EXPECT_TRUE(WaitFor([&] { return Log().find("Standby: Start") != std::string::npos; }, 10));
    EXPECT_NE(Log().find("Standby: Start (no tray on this desktop: the window is minimised)"),
              std::string::npos);
}

}  // namespace
}  // namespace toverin
