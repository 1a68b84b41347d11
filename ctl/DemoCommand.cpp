// toverinctl demo create: a demo site for trying the program, for the tests and the benchmarks.
#include <chrono>
#include <filesystem>
#include <iomanip>
#include <iostream>

#include "app/Clock.h"
#include "app/FileOps.h"
#include "app/Paths.h"
#include "app/Text.h"
#include "ctl/Ctl.h"
#include "tools/DemoSite.h"

namespace toverin::ctl {

namespace {

const char* kDemoUsage =
    "usage: toverinctl demo create DIR [--size small|medium|large] [--history-days N] [--force]";

bool ParseCount(const std::string& text, int& value) {
    if (text.empty() || text.size() > 5) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    value = std::stoi(text);
    return true;
}

}  // namespace

int RunDemoCommand(const Args& given) {
    Args args = given;
    std::string sizeText = "medium", daysText;
    TakeOption(args, "--size", sizeText);
    const bool haveDays = TakeOption(args, "--history-days", daysText);
    const bool force = TakeFlag(args, "--force");
    for (const auto& a : args)
        if (a.rfind("--", 0) == 0)
            return Fail("demo: unknown option '" + a + "'\n" + kDemoUsage, kExitUsage);
    if (args.size() != 2 || args[0] != "create")
        return Fail(
            std::string("demo: one folder to create the site in is expected\n") + kDemoUsage,
            kExitUsage);
    DemoSize size;
    if (!ParseDemoSize(sizeText, size))
        return Fail("demo: unknown size '" + sizeText + "'\n" + kDemoUsage, kExitUsage);
    int days = -1;
    if (haveDays && !ParseCount(daysText, days))
        return Fail("demo: --history-days takes a number of days, not '" + daysText + "'",
                    kExitUsage);

    // A site already there is somebody's: it is not written over unless told so.
    if (!force && FileExists(NormaliseFolder(args[1]) + "Settings/KV3_Config.ini"))
        return Fail("demo: " + args[1] +
                        " already holds a site (Settings/KV3_Config.ini); give --force to write "
                        "the demo site over it",
                    kExitFailed);
    // A folder that takes no writes is said in the system's words.
    if (std::error_code ec; std::filesystem::create_directories(args[1], ec), ec)
        return Fail("demo: " + args[1] + ": " + ec.message(), kExitFailed);
    if (int error = FolderWriteError(NormaliseFolder(args[1])); error != 0)
        return Fail("demo: " + args[1] + ": " + SystemReason(error), kExitFailed);

    const auto start = std::chrono::steady_clock::now();
    DemoSiteResult result = CreateDemoSite(args[1], size, days, AppClock().Now());
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!result.ok) return Fail("demo: " + result.error, kExitFailed);

    std::cout << "Demo site (" << DemoSizeName(size) << ") created in " << args[1] << "\n"
              << "  configuration: " << result.configFile << "\n";
    for (size_t b = 0; b < result.dataFolders.size(); ++b) {
        std::cout << "  base " << b + 1 << ": " << result.dataFolders[b] << ", "
                  << result.BaseRecords(static_cast<int>(b)) << " records\n";
    }
    std::cout << "  " << result.files.size() << " record files, " << result.TotalRecords()
              << " records in " << std::fixed << std::setprecision(1) << seconds << " s\n";
    return 0;
}

}  // namespace toverin::ctl
