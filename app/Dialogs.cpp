#include "app/Dialogs.h"

#include "app/Log.h"
#include "app/Text.h"

namespace toverin {
namespace {

UnattendedDialogs gUnattended;
Dialogs* gDialogs = &gUnattended;
std::string gCaption = "Kavella: Toverin";

std::string OneLine(const std::string& text) {
    return ReplaceAll(ReplaceAll(ReplaceAll(text, "\r\n", " | "), "\n", " | "), "\r", " | ");
}

}  // namespace

MsgAnswer UnattendedAnswer(const MsgRequest& request) {
    if (request.unattended) return *request.unattended;
    switch (request.buttons) {
        case MsgButtons::Ok:
            return MsgAnswer::Ok;
        case MsgButtons::OkCancel:
            return MsgAnswer::Cancel;
        case MsgButtons::AbortRetryIgnore:
            return MsgAnswer::Ignore;
        case MsgButtons::YesNoCancel:
            return MsgAnswer::No;
        case MsgButtons::YesNo:
            return MsgAnswer::No;
        case MsgButtons::RetryCancel:
            return MsgAnswer::Cancel;
    }
    return MsgAnswer::Cancel;
}

std::string AnswerName(MsgAnswer answer) {
    switch (answer) {
        case MsgAnswer::Ok:
            return "OK";
        case MsgAnswer::Cancel:
            return "Annuler";
        case MsgAnswer::Abort:
            return "Abandonner";
        case MsgAnswer::Retry:
            return "Réessayer";
        case MsgAnswer::Ignore:
            return "Ignorer";
        case MsgAnswer::Yes:
            return "Oui";
        case MsgAnswer::No:
            return "Non";
    }
    return "?";
}

MsgAnswer UnattendedDialogs::Message(const MsgRequest& request) {
    MsgAnswer answer = UnattendedAnswer(request);
    TraceLog("Unattended: Message: '" + OneLine(request.text) + "' |Answer: " + AnswerName(answer));
    return answer;
}

std::optional<std::string> UnattendedDialogs::Input(const InputRequest& request) {
    TraceLog("Unattended: Input: '" + OneLine(request.prompt) + "' |Answer: Annuler");
    return std::nullopt;
}

std::string UnattendedDialogs::SelectFolder(const std::string& title, const std::string&) {
    TraceLog("Unattended: Select folder: '" + OneLine(title) + "' |Answer: Annuler");
    return "*";
}

Dialogs& AppDialogs() {
    return *gDialogs;
}
void SetAppDialogs(Dialogs* dialogs) {
    gDialogs = dialogs ? dialogs : &gUnattended;
}

UnattendedScope::UnattendedScope() : previous_(gDialogs) {
    gDialogs = &unattended_;
}

UnattendedScope::~UnattendedScope() {
    gDialogs = previous_;
}

MsgAnswer AffMsg(const std::string& text, MsgButtons buttons, MsgIcon icon,
                 const std::string& title, std::optional<MsgAnswer> unattended) {
    return AppDialogs().Message(
        {text, buttons, icon, title.empty() ? gCaption : title, unattended});
}

std::string AfficherMessageBoxOuInputBox(bool inputBox, const std::string& text, MsgButtons buttons,
                                         MsgIcon icon, const std::string& title,
                                         const std::string& initial) {
    if (inputBox) {
        auto typed = AppDialogs().Input({text, title.empty() ? gCaption : title, initial});
        return typed.value_or("");
    }
    return std::to_string(static_cast<int>(AffMsg(text, buttons, icon, title)));
}

const std::string& AppCaption() {
    return gCaption;
}
void SetAppCaption(const std::string& caption) {
    gCaption = caption;
}

}  // namespace toverin
