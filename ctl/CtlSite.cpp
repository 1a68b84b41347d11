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

int FindSite(const std::string& command, const std::string& rootOption, std::string& root) {
    root = DetermineSuiteRoot(rootOption, "");
    if (!FolderExists(root))
        return Fail(command + ": site not found: " + root + " does not exist", kExitFailed);
    if (!FileExists(root + "Settings/KV3_Config.ini"))
        return Fail(command + ": site not found: " + root +
                        " holds no Settings/KV3_Config.ini (give the site with --root or "
                        "TOVERIN_ROOT)",
                    kExitFailed);
    return 0;
}

bool OpenSiteAt(const std::string& root) {
    SetSuiteRoot(root);
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    return InitGeneralSite() == SiteInitResult::Ok;
}

int OpenSite(Args& args, const std::string& command) {
    std::string option, root;
    TakeOption(args, "--root", option);
    if (int status = FindSite(command, option, root)) return status;
    return OpenSiteAt(root) ? 0 : Fail(command + ": the site could not be read", kExitFailed);
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
