#include "tests/support/TestSupport.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "app/Log.h"
#include "app/Registry.h"

namespace toverin::testing {

namespace fs = std::filesystem;

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    path_ = fs::temp_directory_path() /
            ("toverin-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    fs::remove_all(path_);
    fs::create_directories(path_);
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

ScriptedDialogs::ScriptedDialogs() {
    SetAppDialogs(this);
}
ScriptedDialogs::~ScriptedDialogs() {
    SetAppDialogs(nullptr);
}

MsgAnswer ScriptedDialogs::Message(const MsgRequest& request) {
    if (onShow) onShow();
    messages.push_back(request);
    if (answers.empty()) return UnattendedAnswer(request);
    MsgAnswer a = answers.front();
    answers.pop_front();
    return a;
}

std::optional<std::string> ScriptedDialogs::Input(const InputRequest& request) {
    prompts.push_back(request);
    if (inputs.empty()) return std::nullopt;
    auto a = inputs.front();
    inputs.pop_front();
    return a;
}

std::string ScriptedDialogs::SelectFolder(const std::string&, const std::string&) {
    if (folders.empty()) return "*";
    auto f = folders.front();
    folders.pop_front();
    return f;
}

std::string ScriptedDialogs::SaveFileName(const std::string&, const std::string& filter,
                                          const std::string&) {
    if (onShow) onShow();
    saveFilters.push_back(filter);
    if (saveFiles.empty()) return "";
    auto f = saveFiles.front();
    saveFiles.pop_front();
    return f;
}

ScopedFakeClock::ScopedFakeClock(LocalTime start) : clock_(start) {
    SetAppClock(&clock_);
}
ScopedFakeClock::~ScopedFakeClock() {
    SetAppClock(nullptr);
}

ScopedLogAndRegistry::ScopedLogAndRegistry(const TempDir& dir) {
    logFolder = dir.folder() + "log/";
    ResetLog();
    LogConfig().folder = logFolder;
    LogConfig().enabled = true;
    SetRegistryFile(dir.file("Registry.ini"));
}

ScopedLogAndRegistry::~ScopedLogAndRegistry() {
    ResetLog();
    LogConfig().folder.clear();
    SetRegistryFile("");
}

std::string ScopedLogAndRegistry::LogText() const {
    TraceLogForce();
    // The program moves the log to the current base's folder once the site is read.
    std::vector<std::string> folders{logFolder};
    if (!LogConfig().folder.empty() && LogConfig().folder != logFolder)
        folders.push_back(LogConfig().folder);
    std::string all;
    for (const auto& folder : folders) {
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(folder, ec))
            if (entry.path().extension() == ".Log") all += ReadFile(entry.path());
    }
    return all;
}

std::string ReadFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string CommandOutput(const std::string& command) {
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
        pclose(pipe);
    }
    while (!output.empty() && output.back() == '\n') output.pop_back();
    return output;
}

void WriteFile(const fs::path& file, const std::string& bytes) {
    if (file.has_parent_path()) fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << bytes;
}

}  // namespace toverin::testing
