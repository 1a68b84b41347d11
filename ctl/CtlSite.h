// What the commands that work on a site share: reading the site as the program does, the base
// option, and the dialogs that answer the operations' questions from the command line's flags.
#pragma once

#include <array>
#include <sstream>
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

// "1,3" or "1-3" or "all" into a selection of numbers first..last.
template <size_t N>
bool ParseList(const std::string& text, int first, std::array<bool, N>& out) {
    out.fill(false);
    if (text == "all") {
        for (size_t i = 0; i < N; ++i) out[i] = true;
        return true;
    }
    std::stringstream ss(text);
    std::string item;
    while (std::getline(ss, item, ',')) {
        size_t dash = item.find('-');
        try {
            int a = std::stoi(item.substr(0, dash));
            int b = dash == std::string::npos ? a : std::stoi(item.substr(dash + 1));
            for (int v = a; v <= b; ++v) {
                if (v - first < 0 || v - first >= static_cast<int>(N)) return false;
                out[static_cast<size_t>(v - first)] = true;
            }
        } catch (...) {
            return false;
        }
    }
    return true;
}

}  // namespace toverin::ctl
