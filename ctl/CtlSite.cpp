#include "ctl/CtlSite.h"

#include <iostream>

#include "app/Initialisation.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"

namespace toverin::ctl {

MsgAnswer FlagDialogs::Message(const MsgRequest& request) {
    MsgAnswer answer = UnattendedAnswer(request);
    if (request.buttons == MsgButtons::YesNo && yes_) answer = MsgAnswer::Yes;
    std::string text = ReplaceAll(ReplaceAll(request.text, "\r\n", " "), "\n", " ");
    TraceLog("toverinctl: Message: '" + text + "' |Answer: " + AnswerName(answer));
    std::cerr << text << " -> " << AnswerName(answer) << "\n";
    return answer;
}

std::optional<std::string> FlagDialogs::Input(const InputRequest& request) {
    TraceLog("toverinctl: Input: '" + request.prompt + "' |Answer: Annuler");
    return std::nullopt;
}

bool OpenSite(Args& args) {
    std::string root;
    TakeOption(args, "--root", root);
    SetSuiteRoot(DetermineSuiteRoot(root, ""));
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    return InitGeneralSite() == SiteInitResult::Ok;
}

bool ParseBase(Args& args, int& base) {
    std::string text;
    if (!TakeOption(args, "--base", text)) return false;
    try {
        size_t used = 0;
        base = std::stoi(text, &used);
        return used == text.size() && base >= 0 && base < Site().baseCount;
    } catch (...) {
        return false;
    }
}

}  // namespace toverin::ctl
