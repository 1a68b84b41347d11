// Shared test fixtures: temporary folders, scripted dialogs and a fake clock installed for the
// duration of a test.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/Clock.h"
#include "app/Dialogs.h"

namespace toverin::testing {

// A fresh folder under the system's temporary folder, removed with the object.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    // The folder as the program keeps folders: with a trailing separator.
    std::string folder() const { return path_.string() + "/"; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

// Answers questions from a script and records every question asked.
class ScriptedDialogs final : public Dialogs {
  public:
    ScriptedDialogs();
    ~ScriptedDialogs() override;
    MsgAnswer Message(const MsgRequest& request) override;
    std::optional<std::string> Input(const InputRequest& request) override;
    std::string SelectFolder(const std::string& title, const std::string& start) override;
    std::string SaveFileName(const std::string& title, const std::string& filter,
                             const std::string& start) override;

    void QueueAnswer(MsgAnswer answer) { answers.push_back(answer); }
    void QueueInput(std::optional<std::string> text) { inputs.push_back(std::move(text)); }
    void QueueFolder(std::string folder) { folders.push_back(std::move(folder)); }
    // The next save dialog's answer ("" cancels; when none is queued the dialog is cancelled).
    void QueueSaveFile(std::string path) { saveFiles.push_back(std::move(path)); }

    std::deque<MsgAnswer> answers;  // when empty, the unattended answer is given
    std::deque<std::optional<std::string>> inputs;
    std::deque<std::string> folders;
    std::deque<std::string> saveFiles;
    std::vector<std::string> saveFilters;  // the filter of every save dialog shown
    std::vector<MsgRequest> messages;
    std::vector<InputRequest> prompts;
    // Called as each message box or save dialog comes up, to look at the screen behind it.
    std::function<void()> onShow;
};

// Installs a fake clock for its lifetime.
class ScopedFakeClock {
  public:
    explicit ScopedFakeClock(LocalTime start);
    ~ScopedFakeClock();
    FakeClock& clock() { return clock_; }
    FakeClock* operator->() { return &clock_; }

  private:
    FakeClock clock_;
};

// Points the log at a folder and the registry at a file of a temporary folder, and resets both.
class ScopedLogAndRegistry {
  public:
    explicit ScopedLogAndRegistry(const TempDir& dir);
    ~ScopedLogAndRegistry();
    // Everything logged so far (forces the pending lines out first).
    std::string LogText() const;
    std::string logFolder;
};

std::string ReadFile(const std::filesystem::path& file);
void WriteFile(const std::filesystem::path& file, const std::string& bytes);
// What `command` (run by the shell) writes to its standard output, without its last line ends.
std::string CommandOutput(const std::string& command);

}  // namespace toverin::testing
