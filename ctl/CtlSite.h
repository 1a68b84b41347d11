// What the commands that work on a site share: reading the site as the program does, the base
// option, and the dialogs that answer the operations' questions from the command line's flags.
#pragma once

#include <string>

#include "app/Dialogs.h"
#include "ctl/Ctl.h"

namespace toverin::ctl {

// Answers from the flags (Yes to Yes/No questions when `yes`, else the answer that destroys
// nothing), and writes every question with its answer to the log and to standard error.
class FlagDialogs final : public Dialogs {
  public:
    explicit FlagDialogs(bool yes) : yes_(yes) {}
    MsgAnswer Message(const MsgRequest& request) override;
    std::optional<std::string> Input(const InputRequest& request) override;
    std::string SelectFolder(const std::string&, const std::string&) override { return "*"; }

  private:
    bool yes_;
};

// The site's root as the program finds it (`rootOption`, TOVERIN_ROOT or the user's "Kavella"
// folder), checked before anything is read or made there: 0, or the exit status after saying
// "site not found" (a folder without "Settings/KV3_Config.ini" is no site, and none is built).
int FindSite(const std::string& command, const std::string& rootOption, std::string& root);
// Reads the site at `root` as the program does.
bool OpenSiteAt(const std::string& root);
// Takes --root from `args`, finds the site (said in the name of `command`) and reads it.
bool OpenSite(Args& args, const std::string& command);
// "--base N", N a configured base (0 = the first).
bool ParseBase(Args& args, int& base);

}  // namespace toverin::ctl
