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

// Reads the site as the program does: --root, TOVERIN_ROOT or the user's "Kavella" folder.
bool OpenSite(Args& args);
// "--base N", N a configured base (0 = the first).
bool ParseBase(Args& args, int& base);

}  // namespace toverin::ctl
