// What the commands that work on a site share: reading the site as the program does, the base
// option, and the dialogs that answer the operations' questions from the command line's flags.
#pragma once

#include <array>
#include <sstream>
#include <stdexcept>
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
// Takes --root from `args`, finds the site and reads it: 0, or the exit status after saying
// what is wrong in the name of `command`.
int OpenSite(Args& args, const std::string& command);
// A base number as written (digits only): "" when it reads, else what is wrong.
std::string ParseBaseText(const std::string& command, const std::string& text, int& base);
// The base exists in the site read: "" when it does, else what is wrong.
std::string CheckBase(const std::string& command, int base);
// "--base N", N a configured base (0 = the first), once the site is read: "" when it reads, else
// what is wrong (absent, not a number, not a base of the site).
std::string ParseBase(Args& args, const std::string& command, int& base);

// A list of numbers first..last: "1,3", "2-4" or "all". "" when it reads, else what is wrong.
template <size_t N>
std::string ParseList(const std::string& option, const std::string& text, int first,
                      std::array<bool, N>& out) {
    out.fill(false);
    if (text == "all") {
        out.fill(true);
        return "";
    }
    const int last = first + static_cast<int>(N) - 1;
    const std::string range = std::to_string(first) + ".." + std::to_string(last);
    std::stringstream ss(text);
    std::string item;
    bool any = false;
    while (std::getline(ss, item, ',')) {
        const size_t dash = item.find('-', 1);
        int a = 0, b = 0;
        try {
            size_t used = 0;
            a = std::stoi(item.substr(0, dash), &used);
            if (used != item.substr(0, dash).size()) throw std::invalid_argument(item);
            b = a;
            if (dash != std::string::npos) {
                b = std::stoi(item.substr(dash + 1), &used);
                if (used != item.size() - dash - 1) throw std::invalid_argument(item);
            }
        } catch (...) {
            return option + " '" + text + "': '" + item + "' is not a number or a range (" + range +
                   ", for example 1,3 or 2-4 or all)";
        }
        for (int v : {a, b})
            if (v < first || v > last)
                return option + " " + std::to_string(v) + ": out of range (" + range + ")";
        for (int v = a; v <= b; ++v) out[static_cast<size_t>(v - first)] = true;
        any = true;
    }
    return any ? "" : option + " '" + text + "': nothing selected";
}

}  // namespace toverin::ctl
