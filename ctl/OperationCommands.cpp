// toverinctl backup / restore / create / import-xml: the operations of the Backup, Restauration,
// Création and Import tabs for scripts and service managers. Questions are answered by the flags; a
// question no flag answers gets No, and both are logged. The exit status is 0 only when the
// operation finished without error.
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

struct Session {
    explicit Session(bool yes) : dialogs(yes) { SetAppDialogs(&dialogs); }
    ~Session() {
        TraceLogForce();
        SetAppDialogs(nullptr);
    }
    FlagDialogs dialogs;
    RecordingView view;
};

}  // namespace

int RunBackupCommand(const Args& input) {
    Args args = input;
    bool all = TakeFlag(args, "--all");
    Session session(false);
    if (!OpenSite(args)) return Fail("backup: the site could not be read", 3);
    int base = 0;
    if (!ParseBase(args, base)) return Fail("backup: --base N (0 = the first base) is required");
    if (!args.empty()) return Fail("backup: unexpected '" + args[0] + "'");
    BackupOutcome outcome = BackupData(base, all, session.view);
    std::cout << "backup of base " << base << ": " << outcome.records << " records, "
              << outcome.failedFiles << " file(s) failed" << (outcome.stopped ? ", stopped" : "")
              << "\n";
    return outcome.finished && outcome.failedFiles == 0 ? 0 : 1;
}

int RunRestoreCommand(const Args& input) {
    Args args = input;
    RestoreRequest request;
    request.createEmptyStructure = TakeFlag(args, "--whole-file");
    Session session(false);
    if (!OpenSite(args)) return Fail("restore: the site could not be read", 3);
    int base = 0;
    if (!ParseBase(args, base)) return Fail("restore: --base N (0 = the first base) is required");
    std::string day, stations, files = "all";
    if (!TakeOption(args, "--day", day))
        return Fail("restore: --day DAY (Lundi .. Dimanche) is required");
    bool known = false;
    for (int d = 1; d <= 7; ++d) {
        if (EqualsIgnoreCase(day, DayName(d))) {
            day = DayName(d);
            known = true;
        }
    }
    if (!known) return Fail("restore: unknown day '" + day + "' (Lundi .. Dimanche)");
    if (!TakeOption(args, "--stations", stations) || !ParseList(stations, 1, request.stations))
        return Fail("restore: --stations LIST (for example 1,2 or 1-3) is required");
    TakeOption(args, "--files", files);
    if (!ParseList(files, 0, request.files))
        return Fail("restore: bad --files list '" + files + "'");
    if (!args.empty()) return Fail("restore: unexpected '" + args[0] + "'");
    request.dayName = day;
    RestoreOutcome outcome = RestoreData(base, request, session.view);
    std::cout << "restore of base " << base << " from " << day << ": " << outcome.restoredFiles
              << " file(s) restored, " << outcome.failedFiles << " failed\n";
    return !outcome.refused && outcome.restoredFiles > 0 && outcome.failedFiles == 0 ? 0 : 1;
}

int RunCreateCommand(const Args& input) {
    Args args = input;
    bool yes = TakeFlag(args, "--yes");
    Session session(yes);
    if (!OpenSite(args)) return Fail("create: the site could not be read", 3);
    int base = 0;
    if (!ParseBase(args, base)) return Fail("create: --base N (0 = the first base) is required");
    CreationRequest request;
    std::string stations, files;
    if (!TakeOption(args, "--stations", stations) || !ParseList(stations, 1, request.stations))
        return Fail("create: --stations LIST is required");
    if (!TakeOption(args, "--files", files) || !ParseList(files, 0, request.files))
        return Fail("create: --files LIST is required");
    if (!args.empty()) return Fail("create: unexpected '" + args[0] + "'");
    CreationOutcome outcome = CreateData(base, request, session.view);
    std::cout << "create in base " << base << ": " << outcome.created << " created, "
              << outcome.kept << " kept, " << outcome.failed << " failed\n";
    return !outcome.refused && outcome.failed == 0 ? 0 : 1;
}

int RunImportXmlCommand(const Args& input) {
    Args args = input;
    ImportXMLOptions options;
    options.validation = TakeFlag(args, "--check");
    options.boxes = false;  // the summary and the refusals are printed below
    TakeOption(args, "--categorie", options.categorie);
    Session session(false);
    if (!OpenSite(args)) return Fail("import-xml: the site could not be read", 3);
    if (!ParseBase(args, options.base))
        return Fail("import-xml: --base N (0 = the first base) is required");
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
