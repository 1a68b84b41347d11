// Loading the equivalence table (content/EquivalenceTable.cpp) of a base of ten stations and
// 5,000 rows, timed against two peers measured in the same run:
//
//  1. the same records read raw through the engine's entry point, without the access layer: a
//     walk of file 46 and one Get Equal per cell in its station's songs or labels file, the
//     reads the load makes;
//  2. `toverinctl file copy` of file 46 and of every station's songs file, which reads about as
//     many records and writes them too.
//
// Each run of each measure starts with the files closed, as the window's start-up finds them.
//
//   equivalence_bench [--rows N] [--stations N] [--repeat N] [--dir FOLDER]
//
// Defaults: 5,000 rows, 10 stations, 5 runs. --dir chooses the working folder (default: the
// system temporary folder); it is emptied first and removed at the end unless
// TOVERIN_BENCH_KEEP is set.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "app/Initialisation.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "app/Text.h"
#include "bench/BenchSupport.h"
#include "content/EquivalenceTable.h"
#include "ctl/Ctl.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tools/EquivalenceSite.h"

namespace {

using namespace toverin;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
using bench::Median;
using bench::Seconds;

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "equivalence_bench: %s\n", what.c_str());
    std::exit(1);
}

struct Measure {
    double seconds = 0;
    long long reads = 0;  // records read (walk and look-ups)
};

Measure LoadThroughTheTable(int rows) {
    auto start = Steady::now();
    SlotBank bank("Equivalence");
    EquivalenceTable table;
    if (!table.Load(bank, 0) || !table.complete()) Fail("the table did not load whole");
    Measure m{Seconds(start), 0};
    if (static_cast<int>(table.rows().size()) != rows) Fail("rows missing after the load");
    for (const auto& row : table.rows()) m.reads += 1 + static_cast<long long>(row.cells.size());
    return m;
}

// The load's reads, made straight on the engine: file 46 walked by key 0, each cell read by its
// code in its station's file 22 (a song) or 21 (a category).
Measure ReadRaw(int stations) {
    auto start = Steady::now();
    Measure m;
    const std::string& folder = Site().bases[0].dataFolder;
    engine::EngineFile table;
    std::vector<engine::EngineFile> songs(static_cast<size_t>(stations));
    std::vector<engine::EngineFile> labels(static_cast<size_t>(stations));
    if (table.Open(folder + StationFileName(46, 1)) != 0) Fail("cannot open file 46");
    for (int s = 1; s <= stations; ++s) {
        if (songs[static_cast<size_t>(s) - 1].Open(folder + StationFileName(22, s)) != 0 ||
            labels[static_cast<size_t>(s) - 1].Open(folder + StationFileName(21, s)) != 0)
            Fail("cannot open the files of station " + std::to_string(s));
    }
    std::string record(512, ' '), key(255, '\0'), data(980, ' '), code(255, '\0');
    int16_t status = table.Call(btr::kGetFirst, record, key, 0);
    while (status == btr::kSuccess) {
        ++m.reads;
        const RecordView row(LayoutFor(46), record);
        for (int slot = 0; slot < stations; ++slot) {
            std::string category = row.Part("SongId", 0, slot);
            std::string song = row.Part("SongId", 1, slot);
            bool isCategory = !Trim(category).empty();
            code = isCategory ? "CATEG" + category : song;
            code.resize(255, '\0');
            data.assign(isCategory ? 980 : 900, ' ');
            auto& file = (isCategory ? labels : songs)[static_cast<size_t>(slot)];
            file.Call(btr::kGetEqual, data, code, 0);
            ++m.reads;
        }
        record.assign(512, ' ');
        status = table.Call(btr::kGetNext, record, key, 0);
    }
    if (status != btr::kEndOfFile) Fail("raw walk ended with status " + std::to_string(status));
    m.seconds = Seconds(start);
    return m;
}

// toverinctl file copy of file 46 and of every station's songs file.
Measure CopyWithCtl(int stations, const fs::path& target) {
    fs::remove_all(target);
    fs::create_directories(target);
    const std::string& folder = Site().bases[0].dataFolder;
    std::vector<std::string> files = {StationFileName(46, 1)};
    for (int s = 1; s <= stations; ++s) files.push_back(StationFileName(22, s));
    Measure m;
    for (const std::string& name : files) m.reads += RecordCountOfFile(folder + name);
    // What the command prints would be timed too, and clutter the figures.
    std::ostringstream quiet;
    std::streambuf* out = std::cout.rdbuf(quiet.rdbuf());
    auto start = Steady::now();
    for (const std::string& name : files) {
        if (ctl::RunCtl({"file", "copy", folder + name, (target / name).string()}) != 0)
            Fail("toverinctl file copy " + name + " failed");
    }
    m.seconds = Seconds(start);
    std::cout.rdbuf(out);
    return m;
}

}  // namespace

int main(int argc, char** argv) {
    int rows = 5000, stations = 10, repeat = 5;
    std::string folder;
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        if (i + 1 >= argc) Fail("option " + option + " needs a value");
        std::string value = argv[++i];
        if (option == "--rows") {
            rows = std::max(1, std::atoi(value.c_str()));
        } else if (option == "--stations") {
            stations = std::clamp(std::atoi(value.c_str()), 1, 10);
        } else if (option == "--repeat") {
            repeat = std::max(1, std::atoi(value.c_str()));
        } else if (option == "--dir") {
            folder = value;
        } else {
            Fail("unknown option " + option);
        }
    }
    fs::path dir = folder.empty() ? fs::temp_directory_path() / "toverin-equivalence-bench"
                                  : fs::absolute(fs::path(folder));
    fs::remove_all(dir);
    fs::create_directories(dir);
    std::string command;
    for (int i = 0; i < argc; ++i) command += (i ? " " : "") + std::string(argv[i]);
    std::printf("command: %s\n", command.c_str());
    std::printf("machine: %ld processors online\n", sysconf(_SC_NPROCESSORS_ONLN));

    auto made = Steady::now();
    EquivalenceSiteResult site = CreateEquivalenceSite((dir / "site").string(), stations, rows);
    if (!site.ok) Fail("site: " + site.error);
    std::printf(
        "site: %d stations, %d rows, %lld records in files 21, 22 and 46 (made in %.1f s)\n",
        stations, rows, site.records, Seconds(made));
    SetRegistryFile((dir / "Registry.ini").string());
    LogConfig().folder = (dir / "log/").string();
    SetSuiteRoot((dir / "site").string() + "/");
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    if (InitGeneralSite() != SiteInitResult::Ok) Fail("the site could not be read");

    std::vector<double> load, raw, copy;
    long long loadReads = 0, rawReads = 0, copyRecords = 0;
    for (int run = 0; run < repeat; ++run) {
        // The three take turns, so that none always meets the page cache as another left it.
        Measure a = LoadThroughTheTable(rows);
        Measure b = ReadRaw(stations);
        Measure c = CopyWithCtl(stations, dir / "copy");
        load.push_back(a.seconds);
        raw.push_back(b.seconds);
        copy.push_back(c.seconds);
        loadReads = a.reads;
        rawReads = b.reads;
        copyRecords = c.reads;
        std::printf("run %d: load %.3f s, raw reads %.3f s, file copy %.3f s\n", run + 1, a.seconds,
                    b.seconds, c.seconds);
    }
    const double l = Median(load), r = Median(raw), c = Median(copy);
    std::printf(
        "median of %d: load %.3f s (%lld reads), raw reads %.3f s (%lld reads), "
        "file copy %.3f s (%lld records)\n",
        repeat, l, loadReads, r, rawReads, c, copyRecords);
    std::printf("load / raw reads: %.2f   load / file copy: %.2f\n", r > 0 ? l / r : 0,
                c > 0 ? l / c : 0);

    TraceLogForce();
    ResetRecordAccess();
    ResetSite();
    if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
    return 0;
}
