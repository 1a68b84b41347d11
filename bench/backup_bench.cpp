// The backup of a base (operations/Backup.cpp) on the demo site, timed against peers measured in
// the same run:
//
//  1. A full backup of the first base of a large demo site (about 1,000,000 records), against
//     SQLite's VACUUM INTO of each record file the backup copies (the sum of their times) and
//     against a plain copy of every file of the base's data folder. Each run of each replaces
//     the copies the run before left, as a weekday's backup replaces last week's. The backup's
//     own copy of each finished file to the second root is also timed alone (File_Copy of the
//     same files), so the ratios are given with and without it.
//  2. Limited backups (5 and 30 days of history kept) and a full backup of a base whose history
//     files hold a year of days: the limited backups' time follows the days kept, since history
//     files are read newest first and stop at the lower date.
//
//   backup_bench [--size small|medium|large] [--records-scale X] [--repeat N] [--dir FOLDER]
//                [--year-size small|medium|large] [--year-days N] [--only full|limited]
//
// --size sets the demo profile of the first measure (default large); --records-scale multiplies
// its days of history (the bulk of its records; default 1). --year-size and --year-days set the
// site of the second (default large, 365 days). --repeat runs every measure N times (default 3) and
// prints each run and the median. --dir chooses the working folder (default: the system temporary
// folder); it is emptied first and removed at the end unless TOVERIN_BENCH_KEEP is set.
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/FileOps.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Progress.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "bench/BenchSupport.h"
#include "operations/Backup.h"
#include "operations/BackupSettings.h"
#include "operations/OperationState.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"
#include "tools/DemoSite.h"

namespace {

using namespace toverin;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using bench::CpuSeconds;
using bench::Median;
using bench::Seconds;

// "median (min .. max, spread ±x %)" of a series of timings.
std::string Summary(const std::vector<double>& values) {
    double median = Median(values);
    auto [low, high] = std::minmax_element(values.begin(), values.end());
    char text[128];
    std::snprintf(text, sizeof text, "%7.3f s  (min %.3f, max %.3f, spread %.0f %%)", median, *low,
                  *high, median > 0 ? 100 * (*high - *low) / median : 0.0);
    return text;
}

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "backup_bench: %s\n", what.c_str());
    std::exit(1);
}

std::string CpuModel() {
    std::ifstream in("/proc/cpuinfo");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("model name", 0) == 0) {
            size_t colon = line.find(':');
            return colon == std::string::npos ? line : line.substr(colon + 2);
        }
    }
    return "unknown";
}

// Each measure starts from a quiet disk, as a weekday's backup finds last week's copies long
// written.
using bench::QuietDisk;

// The demo site is made by bulk loads, which put every index off until a read by its key or a
// normal write needs it. A backup reads its sources read-only, which builds no index (it reads
// in row order, or sorts a key's values aside); until this engine left read-only files as they
// are, the first backup built, in each source, the index of the key it reads by, and the runs
// after it used them. So that runs compare with those, each source is given that index first,
// untimed, by a read in normal mode, as the suite's programs give a live base's files theirs.
void BuildBackupKeyIndexes(const fs::path& root) {
    auto start = Clock::now();
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() != ".bt6" || name.size() != 11) continue;
        const bool common = name[4] >= '0' && name[4] <= '9';
        const int f = std::atoi(name.substr(common ? 4 : 5, common ? 3 : 2).c_str());
        const int8_t key = static_cast<int8_t>(IsHistoryFile(f) ? HistoryKeyNumber(f) : 0);
        engine::EngineFile file;
        btr::PbTBtrFileBuf fileBuf{};
        if (file.Open(entry.path().string()) != btr::kSuccess || file.Stat(fileBuf) != 0)
            Fail("cannot open " + entry.path().string());
        std::string record(fileBuf.RecLen, '\0'), keyBuffer(255, '\0');
        int16_t status = file.Call(btr::kGetFirst, record, keyBuffer, key);
        if (status != btr::kSuccess && status != btr::kEndOfFile)
            Fail("cannot read " + entry.path().string());
        ++files;
    }
    std::printf("the index a backup reads by built in its %d record files in %.1f s (untimed)\n",
                files, Seconds(start));
}

// Makes the demo site under `root`, with its indexes, and reads it as the program does at
// start-up.
DemoSiteResult LoadDemoSite(const fs::path& root, DemoSize size, int historyDays) {
    ResetRecordAccess();
    ResetSite();
    ClearDriveTable();
    Operations() = OperationFlags{};
    auto start = Clock::now();
    DemoSiteResult site = CreateDemoSite(root.string(), size, historyDays, AppClock().Now());
    if (!site.ok) Fail("demo site: " + site.error);
    std::printf("demo site %s, %d days of history: base 1 holds %lld records (made in %.1f s)\n",
                DemoSizeName(size), historyDays, site.BaseRecords(0), Seconds(start));
    BuildBackupKeyIndexes(root);
    SetRegistryFile((root / "Registry.ini").string());
    LogConfig().folder = (root / "log/").string();
    SetSuiteRoot(root.string() + "/");
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    if (InitGeneralSite() != SiteInitResult::Ok) Fail("the demo site could not be read");
    return site;
}

// The backup's two roots inside the working folder, as different folders.
BackupOptions OptionsFor(const fs::path& root) {
    BackupOptions options = LoadBackupOptions(0);
    options.localBackupFolder = (root / "backup-local").string() + "/";
    options.serverDataFolder = (root / "backup-server").string() + "/";
    options.optionBackup = 0;  // records copied into the local root, the result copied to the other
    // The roots exist, as on a site: the backup makes no root itself.
    fs::create_directories(options.localBackupFolder);
    fs::create_directories(options.serverDataFolder);
    return options;
}

// The source files a backup of base 0 with `options` copies, in its order.
std::vector<std::string> BackedUpFiles(const BackupOptions& options) {
    std::vector<std::string> files;
    const BaseConfig& cfg = Site().bases.at(0);
    for (int f = 0; f < kCatalogueSize; ++f) {
        if (f == 11 || !options.files[f] || !CatalogueEntryFor(f).Exists()) continue;
        for (int s = 1; s <= cfg.stationCount; ++s) {
            const std::string name = StationFileName(f, s);
            if (name.find_first_not_of(' ') == std::string::npos) continue;
            if (s > 1 && IsCommonFileName(name)) break;
            files.push_back(cfg.dataFolder + name);
        }
    }
    return files;
}

struct BackupRun {
    double seconds = 0;
    double cpu = 0;
    long long records = 0;
};

BackupRun RunBackup(bool all, const BackupOptions& options) {
    NullProgress view;
    const double cpu = CpuSeconds();
    auto start = Clock::now();
    BackupOutcome outcome = BackupData(0, all, options, view);
    BackupRun run{Seconds(start), CpuSeconds() - cpu, outcome.records};
    if (!outcome.finished || outcome.failedFiles != 0)
        Fail("the backup did not finish cleanly (" + std::to_string(outcome.failedFiles) +
             " file(s) failed) " + outcome.error);
    return run;
}

// VACUUM INTO of every file into `folder`: the sum of the per-file times (open, VACUUM, close).
// Like the backup, which replaces last week's copies, each copy first removes the one a
// previous run left there (VACUUM INTO cannot write over a file); `removing` gets that part.
double VacuumInto(const std::vector<std::string>& files, const fs::path& folder, double& cpu,
                  double& removing) {
    fs::create_directories(folder);
    double total = 0;
    removing = 0;
    const double cpuStart = CpuSeconds();
    for (const std::string& source : files) {
        std::string target = (folder / fs::path(source).filename()).string();
        std::string sql = "VACUUM INTO '" + target + "'";
        auto start = Clock::now();
        fs::remove(target);
        removing += Seconds(start);
        sqlite3* db = nullptr;
        int rc = sqlite3_open_v2(source.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
        if (rc == SQLITE_OK) rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
        sqlite3_close(db);
        total += Seconds(start);
        if (rc != SQLITE_OK) Fail("VACUUM INTO " + target + ": status " + std::to_string(rc));
    }
    cpu = CpuSeconds() - cpuStart;
    return total;
}

// A plain copy of every file of `from` (not its subfolders) into `to`, over a previous run's.
double RawCopy(const fs::path& from, const fs::path& to, uintmax_t& bytes) {
    fs::create_directories(to);
    bytes = 0;
    auto start = Clock::now();
    for (const auto& entry : fs::directory_iterator(from)) {
        if (!entry.is_regular_file()) continue;
        fs::copy_file(entry.path(), to / entry.path().filename(),
                      fs::copy_options::overwrite_existing);
        bytes += entry.file_size();
    }
    return Seconds(start);
}

// The backup's second step alone: File_Copy of every record copy of today's folder of the first
// root to a scratch folder, as the backup does to the second root (over a previous run's).
double SecondRootCopy(const BackupOptions& options, const fs::path& scratch) {
    fs::create_directories(scratch);
    std::string day = BackupDayFolder(options.localBackupFolder, DayName(AppClock().Now()));
    std::vector<fs::path> copies;
    for (const auto& entry : fs::directory_iterator(day))
        if (entry.is_regular_file()) copies.push_back(entry.path());
    auto start = Clock::now();
    for (const fs::path& copy : copies)
        if (!File_Copy(copy.string(), (scratch / copy.filename()).string(), true))
            Fail("File_Copy " + copy.string());
    return Seconds(start);
}

uintmax_t FolderBytes(const std::string& folder) {
    uintmax_t bytes = 0;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.is_regular_file()) bytes += entry.file_size();
    return bytes;
}

void FullBackupAgainstPeers(const fs::path& dir, DemoSize size, int historyDays, int repeat) {
    std::printf("\n== 1. Full backup of base 1 against VACUUM INTO and a raw copy ==\n");
    const fs::path root = dir / "site";
    DemoSiteResult site = LoadDemoSite(root, size, historyDays);
    const BackupOptions options = OptionsFor(dir);
    const std::vector<std::string> files = BackedUpFiles(options);
    uintmax_t sourceBytes = 0;
    for (const std::string& f : files) sourceBytes += fs::file_size(f);
    std::printf("the backup copies %zu record files (%.0f MB); the data folder is %s\n",
                files.size(), sourceBytes / 1e6, site.dataFolders[0].c_str());

    std::vector<double> backup, second, vacuum, vacuumAlone, raw, ratioVacuum, ratioVacuumOwn,
        ratioVacuumAlone, ratioRaw;
    std::vector<double> backupCpu, vacuumCpu, ratioCpu;
    long long records = 0;
    uintmax_t rawBytes = 0;
    for (int r = 1; r <= repeat; ++r) {
        QuietDisk();
        BackupRun run = RunBackup(true, options);
        records = run.records;
        QuietDisk();
        double secondCopy = SecondRootCopy(options, dir / "scratch-second-copy");
        double vacuumProcessor = 0, removing = 0;
        QuietDisk();
        double vacuumTime = VacuumInto(files, dir / "vacuum", vacuumProcessor, removing);
        QuietDisk();
        double rawTime = RawCopy(site.dataFolders[0], dir / "raw", rawBytes);
        backup.push_back(run.seconds);
        second.push_back(secondCopy);
        vacuum.push_back(vacuumTime);
        vacuumAlone.push_back(vacuumTime - removing);
        raw.push_back(rawTime);
        ratioVacuum.push_back(run.seconds / vacuumTime);
        ratioVacuumOwn.push_back((run.seconds - secondCopy) / vacuumTime);
        ratioVacuumAlone.push_back(run.seconds / (vacuumTime - removing));
        ratioRaw.push_back(run.seconds / rawTime);
        std::printf(
            "run %d: backup %.3f s (processor %.3f s; %lld records; second-root copy %.3f s), "
            "VACUUM INTO %.3f s (processor %.3f s; removing the previous copies %.3f s), raw "
            "copy %.3f s\n",
            r, run.seconds, run.cpu, run.records, secondCopy, vacuumTime, vacuumProcessor, removing,
            rawTime);
        backupCpu.push_back(run.cpu);
        vacuumCpu.push_back(vacuumProcessor);
        ratioCpu.push_back(run.cpu / vacuumProcessor);
        std::fflush(stdout);
    }
    const std::string day = BackupDayFolder(options.localBackupFolder, DayName(AppClock().Now()));
    std::printf("sizes: sources %.0f MB, backup copies %.0f MB, VACUUM INTO %.0f MB, raw %.0f MB\n",
                sourceBytes / 1e6, FolderBytes(day) / 1e6,
                FolderBytes((dir / "vacuum").string()) / 1e6, rawBytes / 1e6);
    std::printf("median of %d runs:\n", repeat);
    std::printf("  full backup, %lld records        %s\n", records, Summary(backup).c_str());
    std::printf("    of which second-root copy       %s\n", Summary(second).c_str());
    std::vector<double> own;
    for (size_t i = 0; i < backup.size(); ++i) own.push_back(backup[i] - second[i]);
    std::printf("    without the second-root copy    %s\n", Summary(own).c_str());
    std::printf("  VACUUM INTO of the same %zu files  %s\n", files.size(), Summary(vacuum).c_str());
    std::printf("    without removing the previous   %s\n", Summary(vacuumAlone).c_str());
    std::printf("  raw copy of the data folder       %s\n", Summary(raw).c_str());
    const double withCopy = Median(ratioVacuum), withoutCopy = Median(ratioVacuumOwn);
    std::printf("  backup / VACUUM INTO:  %.2f including the second-root copy (target 2.5: %s)\n",
                withCopy, withCopy <= 2.5 ? "met" : "NOT met");
    std::printf("                         %.2f excluding it                   (target 2.5: %s)\n",
                withoutCopy, withoutCopy <= 2.5 ? "met" : "NOT met");
    std::printf(
        "                         %.2f against VACUUM INTO without removing its previous "
        "copies\n",
        Median(ratioVacuumAlone));
    std::printf("  backup / raw copy:     %.2f\n", Median(ratioRaw));
    std::printf("  processor time: backup %s, VACUUM INTO %s, ratio %.2f\n",
                Summary(backupCpu).c_str(), Summary(vacuumCpu).c_str(), Median(ratioCpu));
    std::printf("  (ratios are medians of the per-run ratios)\n");
    for (const char* folder : {"vacuum", "raw", "scratch-second-copy"})
        fs::remove_all(dir / folder);
}

void LimitedAgainstFull(const fs::path& dir, DemoSize size, int historyDays, int repeat) {
    std::printf("\n== 2. Limited backups of a base with %d days of history ==\n", historyDays);
    const fs::path root = dir / "site-year";
    LoadDemoSite(root, size, historyDays);
    const BackupOptions every = OptionsFor(dir);
    BackupOptions historyOnly = every;
    for (int f = 0; f < kCatalogueSize; ++f)
        historyOnly.files[f] = every.files[f] && IsHistoryFile(f);

    struct Case {
        const char* what;
        bool all;
        std::string days;
        const BackupOptions* options;
        std::vector<double> seconds{}, cpu{};
        long long records = 0;
    };
    std::vector<Case> cases = {
        {"history files only, 5 days kept", false, "5", &historyOnly},
        {"history files only, 30 days kept", false, "30", &historyOnly},
        {"whole base, 5 days kept", false, "5", &every},
        {"whole base, 30 days kept", false, "30", &every},
        {"whole base, full", true, "30", &every},
    };
    for (int r = 1; r <= repeat; ++r) {
        for (Case& c : cases) {
            BackupOptions options = *c.options;
            options.historyDaysText = c.days;
            BackupRun run = RunBackup(c.all, options);
            c.seconds.push_back(run.seconds);
            c.cpu.push_back(run.cpu);
            c.records = run.records;
            std::printf("run %d: %-34s %9lld records %8.3f s (processor %.3f s)\n", r, c.what,
                        run.records, run.seconds, run.cpu);
            std::fflush(stdout);
        }
    }
    std::printf("median of %d runs:\n", repeat);
    for (const Case& c : cases) {
        std::printf("  %-34s %9lld records %s  processor %.3f s\n", c.what, c.records,
                    Summary(c.seconds).c_str(), Median(c.cpu));
    }
    // Time = a fixed part (creating, opening and closing every file, the non-history files) plus
    // a part per day kept; a backup that read the whole year would cost the full backup's time.
    auto compare = [&](const char* what, const Case& five, const Case& thirty) {
        const double perDay = (Median(thirty.seconds) - Median(five.seconds)) / 25;
        const double perDayCpu = (Median(thirty.cpu) - Median(five.cpu)) / 25;
        std::printf(
            "  %s, 30 days / 5 days: records x%.2f, time x%.2f, processor x%.2f; each day kept "
            "adds %.0f records and %.3f s (processor %.3f s)\n",
            what, static_cast<double>(thirty.records) / five.records,
            Median(thirty.seconds) / Median(five.seconds), Median(thirty.cpu) / Median(five.cpu),
            (thirty.records - five.records) / 25.0, perDay, perDayCpu);
    };
    compare("history files", cases[0], cases[1]);
    compare("whole base", cases[2], cases[3]);
    const Case& five = cases[2];
    const Case& full = cases[4];
    std::printf(
        "  whole base, full / 5 days kept: records x%.1f, time x%.1f, processor x%.1f "
        "(5 days kept: %.1f %% of the full backup's time for %.1f %% of its records)\n",
        static_cast<double>(full.records) / five.records,
        Median(full.seconds) / Median(five.seconds), Median(full.cpu) / Median(five.cpu),
        100 * Median(five.seconds) / Median(full.seconds), 100.0 * five.records / full.records);
}

}  // namespace

int main(int argc, char** argv) {
    DemoSize size = DemoSize::Large, yearSize = DemoSize::Large;
    double scale = 1.0;
    int repeat = 3, yearDays = 365;
    std::string folder, only;
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        if (i + 1 >= argc) Fail("option " + option + " needs a value");
        std::string value = argv[++i];
        if (option == "--size") {
            if (!ParseDemoSize(value, size)) Fail("unknown size " + value);
        } else if (option == "--year-size") {
            if (!ParseDemoSize(value, yearSize)) Fail("unknown size " + value);
        } else if (option == "--records-scale") {
            scale = std::strtod(value.c_str(), nullptr);
        } else if (option == "--repeat") {
            repeat = std::max(1, std::atoi(value.c_str()));
        } else if (option == "--year-days") {
            yearDays = std::max(31, std::atoi(value.c_str()));
        } else if (option == "--dir") {
            folder = value;
        } else if (option == "--only") {
            only = value;
        } else {
            Fail("unknown option " + option);
        }
    }
    const int historyDays =
        std::max(1, static_cast<int>(std::lround(DefaultHistoryDays(size) * scale)));
    fs::path dir = folder.empty() ? fs::temp_directory_path() / "toverin-backup-bench"
                                  : fs::absolute(fs::path(folder));
    fs::remove_all(dir);
    fs::create_directories(dir);

    std::string command;
    for (int i = 0; i < argc; ++i) command += (i ? " " : "") + std::string(argv[i]);
    std::printf("command: %s\n", command.c_str());
    std::printf("machine: %ld processors online (nproc), %s, SQLite %s\n",
                sysconf(_SC_NPROCESSORS_ONLN), CpuModel().c_str(), sqlite3_libversion());
    std::printf("folder %s, %d run(s) per measure\n", dir.string().c_str(), repeat);

    if (only.empty() || only == "full") FullBackupAgainstPeers(dir, size, historyDays, repeat);
    if (only.empty() || only == "limited") {
        fs::remove_all(dir / "site");
        LimitedAgainstFull(dir, yearSize, yearDays, repeat);
    }

    TraceLogForce();
    ResetRecordAccess();
    ResetSite();
    if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
    return 0;
}
