// The dialogs port. Operations never touch widgets: they ask through this port, which the Qt
// interface implements with the program's message and input boxes, tests implement with scripted
// answers, and unattended runs implement by policy, writing each question to the log.
#pragma once

#include <optional>
#include <string>

namespace toverin {

enum class MsgButtons { Ok, OkCancel, AbortRetryIgnore, YesNoCancel, YesNo, RetryCancel };
enum class MsgIcon { None, Critical, Question, Exclamation, Information };
// The classic message-box answer numbers.
enum class MsgAnswer { Ok = 1, Cancel = 2, Abort = 3, Retry = 4, Ignore = 5, Yes = 6, No = 7 };

struct MsgRequest {
    std::string text;
    MsgButtons buttons = MsgButtons::Ok;
    MsgIcon icon = MsgIcon::None;
    std::string title;
    // The answer given when nobody can answer; by default the one that destroys nothing.
    std::optional<MsgAnswer> unattended;
};

struct InputRequest {
    std::string prompt;
    std::string title;
    std::string initial;
};

class Dialogs {
  public:
    virtual ~Dialogs() = default;
    virtual MsgAnswer Message(const MsgRequest& request) = 0;
    // The text typed, or nothing when the box was cancelled.
    virtual std::optional<std::string> Input(const InputRequest& request) = 0;
    // The chosen folder, or "*" when the user cancelled.
    virtual std::string SelectFolder(const std::string& title, const std::string& start) = 0;
    // The file chosen in a save dialog, "" when the user cancelled. `filter` is written as the
    // suite writes it: "Fichiers xls|*.xls|Fichiers xlsx|*.xlsx". The dialog does not ask about
    // an existing file: the caller does. Nobody to ask: cancelled.
    virtual std::string SaveFileName(const std::string& title, const std::string& filter,
                                     const std::string& start) {
        (void)title, (void)filter, (void)start;
        return "";
    }
};

// Answers without asking anybody and logs the question with its answer.
class UnattendedDialogs final : public Dialogs {
  public:
    MsgAnswer Message(const MsgRequest& request) override;
    std::optional<std::string> Input(const InputRequest& request) override;
    std::string SelectFolder(const std::string& title, const std::string& start) override;
};

// The answer that destroys nothing and loses nothing, for each set of buttons.
MsgAnswer UnattendedAnswer(const MsgRequest& request);
std::string AnswerName(MsgAnswer answer);  // "Oui", "Non", ...

// The port in use; nullptr restores the unattended one.
Dialogs& AppDialogs();
void SetAppDialogs(Dialogs* dialogs);

// A run nobody watches (the scheduler's, the command line's): for its lifetime every question
// gets its unattended answer and is logged, whatever port the program uses otherwise; the port
// in use before comes back at the end.
class UnattendedScope {
  public:
    UnattendedScope();
    ~UnattendedScope();
    UnattendedScope(const UnattendedScope&) = delete;
    UnattendedScope& operator=(const UnattendedScope&) = delete;

  private:
    Dialogs* previous_;
    UnattendedDialogs unattended_;
};

// The program's message box.
MsgAnswer AffMsg(const std::string& text, MsgButtons buttons, MsgIcon icon,
                 const std::string& title = "", std::optional<MsgAnswer> unattended = {});
// The message box or, when `inputBox` is set, the input box. For a message the answer is the
// answer number as text; for an input the typed text ("" when cancelled).
std::string AfficherMessageBoxOuInputBox(bool inputBox, const std::string& text, MsgButtons buttons,
                                         MsgIcon icon, const std::string& title,
                                         const std::string& initial = "");

// The window caption that titles the program's boxes ("Kavella: Toverin" until the main window
// sets it).
const std::string& AppCaption();
void SetAppCaption(const std::string& caption);

// The caption while a long operation lasts; the previous one comes back at the end.
class CaptionScope {
  public:
    explicit CaptionScope(const std::string& caption) : previous_(AppCaption()) {
        SetAppCaption(caption);
    }
    ~CaptionScope() { SetAppCaption(previous_); }
    CaptionScope(const CaptionScope&) = delete;
    CaptionScope& operator=(const CaptionScope&) = delete;

  private:
    std::string previous_;
};

}  // namespace toverin
