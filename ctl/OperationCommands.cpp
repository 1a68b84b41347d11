// toverinctl backup / restore / create / import-xml: the operations of the Backup, Restauration,
// Création and Import tabs for scripts and service managers. The command line is checked in full
// before the site is read, and a site that is not there is refused, not made. Questions are
// answered by the flags; a question no flag answers gets its unattended answer, and both are
// logged. The exit status is 0 only when the operation did all it had to, and the files that
// failed are named.
#include <iostream>
#include <sstream>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Initialisation.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/ImportXML.h"
#include "ctl/Ctl.h"
#include "ctl/CtlSite.h"
#include "operations/Backup.h"
#include "operations/Restore.h"
#include "store/Pervasive.h"

namespace toverin::ctl {
namespace {

// The stations chosen exist in the base; "all" is every station the base has.
std::string CheckStations(const std::string& command, int base, const std::string& text,
                          std::array<bool, kMaxStations>& stations) {
    const int count = Site().bases[static_cast<size_t>(base)].stationCount;
    if (text == "all")
        for (int i = count; i < kMaxStations; ++i) stations[i] = false;
    for (int i = count; i < kMaxStations; ++i)
        if (stations[i])
            return command + ": --stations " + std::to_string(i + 1) + ": base " +
                   std::to_string(base) + " has " + std::to_string(count) + " station(s) (1.." +
                   std::to_string(count) + ")";
    return "";
}

struct Session {
    explicit Session(bool yes) : dialogs(yes) { SetAppDialogs(&dialogs); }
    ~Session() {
        TraceLogForce();
        SetAppDialogs(nullptr);
    }
    FlagDialogs dialogs;
    NullProgress progress;
};

std::string NameList(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : " ") + name;
    return list;
}

// What the three commands share: --root and --base, checked before anything is read.
struct Common {
    std::string root;
    int base = 0;
};

int ParseCommon(const std::string& command, Args& args, Common& common) {
    std::string rootOption, baseText;
    TakeOption(args, "--root", rootOption);
    if (!TakeOption(args, "--base", baseText))
        return Fail(command + ": --base N (0 = the first base) is required", kExitUsage);
    if (std::string error = ParseBaseText(command, baseText, common.base); !error.empty())
        return Fail(error, kExitUsage);
    common.root = rootOption;
    return 0;
}

int Unexpected(const std::string& command, const Args& args) {
    return args.empty() ? 0 : Fail(command + ": unexpected '" + args[0] + "'", kExitUsage);
}

// Reads the site of `common` and checks the base; 0 or the exit status.
int LoadSite(const std::string& command, Common& common) {
    if (int status = FindSite(command, common.root, common.root)) return status;
    if (!OpenSiteAt(common.root))
        return Fail(command + ": the site could not be read", kExitFailed);
    if (std::string error = CheckBase(command, common.base); !error.empty())
        return Fail(error, kExitUsage);
    return 0;
}

}  // namespace

int RunBackupCommand(const Args& input) {
    Args args = input;
    const bool all = TakeFlag(args, "--all");
    Common common;
    if (int status = ParseCommon("backup", args, common)) return status;
    if (int status = Unexpected("backup", args)) return status;
    Session session(false);
    if (int status = LoadSite("backup", common)) return status;
    BackupOutcome outcome = BackupData(common.base, all, session.progress);
    std::cout << "backup of base " << common.base << ": " << outcome.copiedFiles
              << " file(s) copied, " << outcome.records << " records, " << outcome.failedFiles
              << " file(s) failed";
    if (!outcome.failedNames.empty()) std::cout << ": " << NameList(outcome.failedNames);
    if (outcome.stopped) std::cout << "; stopped";
    if (outcome.failed) std::cout << "; the backup stopped early (see the message above)";
    if (!outcome.started) std::cout << "; not started";
    std::cout << "\n";
    return outcome.Good() ? 0 : kExitFailed;
}

int RunRestoreCommand(const Args& input) {
    Args args = input;
    RestoreRequest request;
    request.createEmptyStructure = TakeFlag(args, "--whole-file");
    Common common;
    if (int status = ParseCommon("restore", args, common)) return status;
    std::string day, stations, files = "all", from = "server";
    if (!TakeOption(args, "--day", day))
        return Fail("restore: --day DAY (Lundi .. Dimanche) is required", kExitUsage);
    bool known = false;
    for (int d = 1; d <= 7; ++d) {
        if (EqualsIgnoreCase(day, DayName(d))) {
            request.dayName = DayName(d);
            known = true;
        }
    }
    if (!known) return Fail("restore: unknown day '" + day + "' (Lundi .. Dimanche)", kExitUsage);
    if (!TakeOption(args, "--stations", stations))
        return Fail("restore: --stations LIST (for example 1,2 or 1-3) is required", kExitUsage);
    if (std::string e = ParseList("--stations", stations, 1, request.stations); !e.empty())
        return Fail("restore: " + e, kExitUsage);
    TakeOption(args, "--files", files);
    if (std::string e = ParseList("--files", files, 0, request.files); !e.empty())
        return Fail("restore: " + e, kExitUsage);
    TakeOption(args, "--from", from);
    if (from != "server" && from != "local")
        return Fail("restore: --from takes server or local, not '" + from + "'", kExitUsage);
    request.fromLocalRoot = from == "local";
    if (int status = Unexpected("restore", args)) return status;
    Session session(false);
    if (int status = LoadSite("restore", common)) return status;
    if (std::string e = CheckStations("restore", common.base, stations, request.stations);
        !e.empty())
        return Fail(e, kExitUsage);
    RestoreOutcome outcome = RestoreData(common.base, request, session.progress);
    std::cout << "restore of base " << common.base << " from " << request.dayName << " (" << from
              << " root): " << outcome.restoredFiles << " file(s) restored, " << outcome.failedFiles
              << " failed";
    if (!outcome.failedNames.empty())
        std::cout << " (left as they were): " << NameList(outcome.failedNames);
    if (!outcome.missingNames.empty())
        std::cout << ", not in the backup: " << NameList(outcome.missingNames);
    std::cout << "\n";
    return !outcome.refused && !outcome.failed && !outcome.stopped && outcome.restoredFiles > 0 &&
                   outcome.failedFiles == 0
               ? 0
               : kExitFailed;
}

int RunCreateCommand(const Args& input) {
    Args args = input;
    const bool yes = TakeFlag(args, "--yes");
    Common common;
    if (int status = ParseCommon("create", args, common)) return status;
    CreationRequest request;
    std::string stations, files;
    if (!TakeOption(args, "--stations", stations))
        return Fail("create: --stations LIST is required", kExitUsage);
    if (std::string e = ParseList("--stations", stations, 1, request.stations); !e.empty())
        return Fail("create: " + e, kExitUsage);
    if (!TakeOption(args, "--files", files))
        return Fail("create: --files LIST is required", kExitUsage);
    if (std::string e = ParseList("--files", files, 0, request.files); !e.empty())
        return Fail("create: " + e, kExitUsage);
    if (int status = Unexpected("create", args)) return status;
    Session session(yes);
    if (int status = LoadSite("create", common)) return status;
    if (std::string e = CheckStations("create", common.base, stations, request.stations);
        !e.empty())
        return Fail(e, kExitUsage);
    CreationOutcome outcome = CreateData(common.base, request, session.progress);
    std::cout << "create in base " << common.base << ": " << outcome.created << " created, "
              << outcome.kept << " kept, " << outcome.failed << " failed\n";
    return !outcome.refused && outcome.failed == 0 ? 0 : kExitFailed;
}

int RunImportXmlCommand(const Args& input) {
    Args args = input;
    ImportXMLOptions options;
    options.validation = TakeFlag(args, "--check");
    options.boxes = false;  // the summary and the refusals are printed below
    TakeOption(args, "--categorie", options.categorie);
    Session session(false);
    if (int status = OpenSite(args, "import-xml")) return status;
    if (std::string error = ParseBase(args, "import-xml", options.base); !error.empty())
        return Fail(error);
    std::string station;
    const int stations = Site().bases[static_cast<size_t>(options.base)].stationCount;
    try {
        size_t used = 0;
        if (TakeOption(args, "--station", station)) options.station = std::stoi(station, &used);
        if (used != station.size()) options.station = 0;
    } catch (...) {
        options.station = 0;
    }
    if (options.station < 1 || options.station > stations)
        return Fail("import-xml: --station S (1 .. " + std::to_string(stations) + ") is required");
    if (args.size() != 1)
        return Fail(args.empty() ? "import-xml: the delivery file is required"
                                 : "import-xml: unexpected '" + args[1] + "'");
    const std::string file = NativePath(args[0]);
    if (!FileExists(file)) return Fail("import-xml: " + file + " does not exist", kExitMissingFile);
    SlotBank bank("toverinctl");
    NullProgress progress;
    ImportXMLResultat r = ImportXMLImporter(file, options, bank, progress);
    for (const ImportXMLRefus& refus : r.refusals) std::cout << refus.Text() << "\n";
    for (const std::string& warning : r.warnings) std::cout << warning << "\n";
    if (!r.message.empty()) std::cerr << r.message << "\n";
    std::cout << "import-xml " << (options.validation ? "check of " : "of ") << file
              << " into base " << options.base << " station " << options.station << ": "
              << r.LogSummary() << "\n";
    if (!r.ended) return kExitFailed;
    return r.refused == 0 && r.missing == 0 ? 0 : kExitRefused;
}

}  // namespace toverin::ctl
