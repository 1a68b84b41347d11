// The music-schedule duplication (content/DuplicationScheduler.cpp) on the demo site, timed
// against `toverinctl file copy` of the same number of records in the same run.
//
// The duplication: the last full week of station 1's schedule (the seven days before today),
// with its song and artist histories and its daily gaps, onto stations 2 and 3 of the first
// base at the same dates, every hour, with the base's equivalence table. It clears the targets'
// week first, copies, and rewrites the copied songs through the table, as a user's run does.
//
// The peer: as many records as the duplication writes (station 1's week of files 33, 34, 35 and
// 49, read untimed into eight scratch files, one set per target station) copied by
// `toverinctl file copy`, each into a fresh file, run in this process. Target: the duplication
// takes at most 3 times as long.
//
//   duplication_bench [--size small|medium|large] [--repeat N] [--dir FOLDER]
//
// A first duplication runs untimed (the demo's bulk-loaded files build their secondary indexes
// on first use). --size sets the demo profile (default large: about 500 events and 700 history
// records a day per station); --repeat runs both N times (default 3) and prints each run and the
// medians;
// --dir chooses the working folder (default: the system temporary folder), emptied first and
// removed at the end unless TOVERIN_BENCH_KEEP is set.
#include <sys/resource.h>
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

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "bench/BenchSupport.h"
#include "content/Duplication.h"
#include "ctl/Ctl.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"
#include "tools/DemoSite.h"

namespace {

using namespace toverin;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
using bench::CpuSeconds;
using bench::Median;
using bench::Seconds;

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "duplication_bench: %s\n", what.c_str());
    std::exit(1);
}

// The run's questions are answered Yes, as a user who starts it does.
class YesDialogs final : public Dialogs {
  public:
    MsgAnswer Message(const MsgRequest& request) override {
        if (request.buttons == MsgButtons::YesNo) return MsgAnswer::Yes;
        if (request.icon != MsgIcon::Information) Fail("message: " + request.text);
        return MsgAnswer::Ok;
    }
    std::optional<std::string> Input(const InputRequest&) override { return std::nullopt; }
    std::string SelectFolder(const std::string&, const std::string&) override { return "*"; }
};

void LoadDemoSite(const fs::path& root, DemoSize size) {
    auto start = Steady::now();
    DemoSiteResult site =
        CreateDemoSite(root.string(), size, DefaultHistoryDays(size), AppClock().Now());
    if (!site.ok) Fail("demo site: " + site.error);
    std::printf("demo site %s: base 1 holds %lld records (made in %.1f s)\n", DemoSizeName(size),
                site.BaseRecords(0), Seconds(start));
    SetRegistryFile((root / "Registry.ini").string());
    LogConfig().folder = (root / "log/").string();
    SetSuiteRoot(root.string() + "/");
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    if (InitGeneralSite() != SiteInitResult::Ok) Fail("the demo site could not be read");
}

ScheduleDuplicationRequest Week() {
    ScheduleDuplicationRequest r;
    r.base = 0;
    r.sourceStation = 1;
    r.targets[1] = r.targets[2] = true;
    const LocalTime today = StartOfDay(AppClock().Now());
    r.dateDeb = r.dateCible = AddDays(today, -7);
    r.dateFin = AddDays(today, -1);
    r.hourDeb = r.hourDebCible = 0;
    r.hourFin = 23;
    r.history = true;
    return r;
}

// Copies the records of `station`'s file `file` dated within [from, to] into a fresh file.
long long ExtractWeek(int file, int station, const std::string& from, const std::string& to,
                      const std::string& target) {
    engine::EngineFile in, out;
    if (in.Open(DataFilePath(0, file, station), btr::kOpenReadOnly) != 0) Fail("open source");
    fs::remove(target);
    if (engine::EngineFile::Create(target, CreationRecord(file)) != 0) Fail("create " + target);
    if (out.Open(target, btr::kOpenAccelerated) != 0) Fail("open " + target);
    const int length = KeyLength(file, 0);
    std::string data(CatalogueEntryFor(file).recordLength, ' ');
    std::string key = from + std::string(static_cast<size_t>(length) - from.size(), '\0');
    key.resize(255, '\0');
    long long n = 0;
    int16_t status = in.Call(btr::kGetGreaterOrEqual, data, key, 0);
    // File 34's first key starts with its date at position 9: its key buffer holds the date.
    while (status == 0 && key.compare(0, 8, to) <= 0) {
        std::string outKey(255, '\0');
        if (out.Call(btr::kInsert, data, outKey, 0) != 0) Fail("insert into " + target);
        ++n;
        data.assign(CatalogueEntryFor(file).recordLength, ' ');
        status = in.Call(btr::kGetNext, data, key, 0);
    }
    return n;
}

double FileCopies(const std::vector<std::string>& sources, const fs::path& folder, double& cpu) {
    std::ostringstream quiet;
    std::streambuf* was = std::cout.rdbuf(quiet.rdbuf());
    double total = 0;
    cpu = 0;
    for (const std::string& source : sources) {
        const std::string target = (folder / fs::path(source).filename()).string();
        fs::remove(target);
        ::sync();
        const double processor = CpuSeconds();
        auto start = Steady::now();
        const int status = ctl::RunCtl({"file", "copy", source, target});
        total += Seconds(start);
        cpu += CpuSeconds() - processor;
        if (status != 0)
            Fail("toverinctl file copy " + source + ": exit " + std::to_string(status));
    }
    std::cout.rdbuf(was);
    return total;
}

}  // namespace

int main(int argc, char** argv) {
    DemoSize size = DemoSize::Large;
    int repeat = 3;
    fs::path dir = fs::temp_directory_path() / "toverin-duplication-bench";
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const std::string value = i + 1 < argc ? argv[i + 1] : "";
        if (arg == "--size" && ParseDemoSize(value, size)) {
            ++i;
        } else if (arg == "--repeat" && !value.empty()) {
            repeat = std::max(1, std::atoi(value.c_str()));
            ++i;
        } else if (arg == "--dir" && !value.empty()) {
            dir = value;
            ++i;
        } else {
            Fail("usage: duplication_bench [--size small|medium|large] [--repeat N] [--dir D]");
        }
    }
    fs::remove_all(dir);
    fs::create_directories(dir / "peer");
    LoadDemoSite(dir / "site", size);
    YesDialogs dialogs;
    SetAppDialogs(&dialogs);

    const ScheduleDuplicationRequest request = Week();
    const std::string from = DateKey(request.dateCible), to = DateKey(request.dateFin);
    std::printf("duplicating %s..%s of station 1 onto stations 2 and 3, histories included\n",
                from.c_str(), to.c_str());
    // The peer copies as many records as the duplication writes: station 1's week of each file,
    // once per target station, read untimed into scratch files of their own.
    std::vector<std::string> sources;
    long long records = 0;
    for (int station : {2, 3}) {
        for (int file : {33, 34, 35, 49}) {
            const std::string path =
                (dir / ("week-" + std::to_string(station) + "-" + std::to_string(file) + ".bt6"))
                    .string();
            records += ExtractWeek(file, 1, from, to, path);
            sources.push_back(path);
        }
    }
    // One run untimed first: the demo site is written by bulk loads, which leave the secondary
    // indexes of its files to be built by their first use, as a site's own files never are.
    {
        NullProgress nobody;
        if (DuplicationScheduler(request, nobody).outcome != progress::Outcome::Finished)
            Fail("the first duplication did not finish");
    }
    std::vector<double> duplication, copies, ratios;
    for (int run = 1; run <= repeat; ++run) {
        ::sync();
        NullProgress nobody;
        const double cpu = CpuSeconds();
        auto start = Steady::now();
        ScheduleDuplicationOutcome outcome = DuplicationScheduler(request, nobody);
        const double seconds = Seconds(start);
        const double processor = CpuSeconds() - cpu;
        if (outcome.outcome != progress::Outcome::Finished) Fail("the duplication did not finish");
        if (records != outcome.copied)
            Fail("the source week holds " + std::to_string(records) + " records for the targets, " +
                 "the run wrote " + std::to_string(outcome.copied));
        double copyProcessor = 0;
        const double copy = FileCopies(sources, dir / "peer", copyProcessor);
        duplication.push_back(seconds);
        copies.push_back(copy);
        ratios.push_back(seconds / copy);
        std::printf(
            "run %d: duplication %.3f s (processor %.3f s; %lld records copied, %lld deleted, "
            "%lld replaced), "
            "toverinctl file copy of %lld records in 8 files %.3f s (processor %.3f s), ratio "
            "%.2f\n",
            run, seconds, processor, outcome.copied, outcome.deleted, outcome.replaced, records,
            copy, copyProcessor, seconds / copy);
        std::fflush(stdout);
    }
    const double ratio = Median(ratios);
    std::printf("median of %d runs: duplication %.3f s, file copy %.3f s\n", repeat,
                Median(duplication), Median(copies));
    std::printf(
        "duplication / toverinctl file copy: %.2f, median of the runs' ratios (target 3: %s)\n",
        ratio, ratio <= 3 ? "met" : "NOT met");
    SetAppDialogs(nullptr);
    if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
    return 0;
}
