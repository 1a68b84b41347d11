#include "ctl/Ctl.h"

#include <functional>
#include <iostream>
#include <map>

namespace toverin::ctl {

namespace {

const char* kUsage =
    "usage: toverinctl COMMAND ...\n"
    "  ftp --server HOST[:PORT] --user U --password-file F [--passive] [--binary] [--cwd DIR]\n"
    "      {ls|put LOCAL REMOTE|get REMOTE LOCAL|rm NAME|rmdir NAME|size NAME}\n"
    "  backup [--root DIR] --base N [--all]\n"
    "  restore [--root DIR] --base N --day DAY --stations LIST [--files LIST] [--whole-file]\n"
    "      [--from server|local]\n"
    "  create [--root DIR] --base N --stations LIST --files LIST [--yes]\n"
    "      N: the base index as in /Backup_Base= (0 = the first base); LIST: 1,3 or 2-4 or all\n"
    "  import-xml [--root DIR] FILE --base N --station S [--check] [--categorie CODE]\n"
    "      --check: every record checked and every refusal listed, nothing written\n"
    "  demo create DIR [--size small|medium|large] [--history-days N] [--force]\n"
    "  file stat PATH\n"
    "  file dump PATH [--key N] [--from V] [--to V] [--format csv|xml|xls|xlsx] [--output FILE]\n"
    "      [--catalogue N]\n"
    "  file create PATH [--catalogue N]\n"
    "  file copy SRC DST\n"
    "  file check PATH\n"
    "  equivalence show [--root DIR] --base N\n"
    "  duplicate schedule [--root DIR] --base N --source S --targets LIST --from YYYY-MM-DD\n"
    "      --to YYYY-MM-DD --target-date YYYY-MM-DD [--hours HH-HH] [--target-hour HH] "
    "[--history]\n"
    "  duplicate labels [--root DIR] --base N --source S --targets LIST\n"
    "      [--groups categ,theme,horlo,000,jin,lin,rub,inf] [--change-category] [--all-zones]\n"
    "      (a duplication's questions are answered Yes, and logged)\n"
    "exit status: 0 ok, 1 failed (any file that failed, a site not found), 2 usage error,\n"
    "  3 missing file (ftp: no connection to the server), 4 not a record file,\n"
    "  5 import-xml ran to its end but refused records (listed on the output)\n";

}  // namespace

bool TakeOption(Args& args, const std::string& name, std::string& value) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == name && i + 1 < args.size()) {
            value = args[i + 1];
            args.erase(args.begin() + static_cast<long>(i),
                       args.begin() + static_cast<long>(i) + 2);
            return true;
        }
        if (args[i].rfind(name + "=", 0) == 0) {
            value = args[i].substr(name.size() + 1);
            args.erase(args.begin() + static_cast<long>(i));
            return true;
        }
    }
    return false;
}

bool TakeFlag(Args& args, const std::string& name) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == name) {
            args.erase(args.begin() + static_cast<long>(i));
            return true;
        }
    }
    return false;
}

int Fail(const std::string& message, int status) {
    std::cerr << "toverinctl: " << message << "\n";
    return status;
}

int RunCtl(const Args& args) {
    static const std::map<std::string, std::function<int(const Args&)>> commands = {
        {"ftp", RunFtpCommand},
        {"backup", RunBackupCommand},
        {"restore", RunRestoreCommand},
        {"create", RunCreateCommand},
        {"demo", RunDemoCommand},
        {"file", RunFileCommand},
        {"import-xml", RunImportXmlCommand},
        {"equivalence", RunEquivalenceCommand},
        {"duplicate", RunDuplicateCommand},
    };
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        std::cout << kUsage;
        return args.empty() ? 2 : 0;
    }
    auto it = commands.find(args[0]);
    if (it == commands.end()) return Fail("unknown command '" + args[0] + "'\n" + kUsage);
    return it->second(Args(args.begin() + 1, args.end()));
}

}  // namespace toverin::ctl
