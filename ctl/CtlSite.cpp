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

std::string ParseBaseText(const std::string& command, const std::string& text, int& base) {
    if (text.empty() || text.size() > 3 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return command + ": --base takes a base number (0 = the first base), not '" + text + "'";
    base = std::stoi(text);
    return "";
}

std::string CheckBase(const std::string& command, int base) {
    if (base < Site().baseCount) return "";
    return command + ": --base " + std::to_string(base) + ": the site has " +
           std::to_string(Site().baseCount) + " base(s) (0.." +
           std::to_string(Site().baseCount - 1) + ")";
}

std::string ParseBase(Args& args, const std::string& command, int& base) {
    std::string text;
    if (!TakeOption(args, "--base", text))
        return command + ": --base N (0 = the first base) is required";
    if (std::string error = ParseBaseText(command, text, base); !error.empty()) return error;
    return CheckBase(command, base);
}

}  // namespace toverin::ctl
