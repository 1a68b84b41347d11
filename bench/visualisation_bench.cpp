// The data viewer on the largest record file of the large demo site, against the sqlite3 command
// line reading the same file in the same run:
//
//  1. The grid (the viewer's model in a table view, offscreen): time from Visualiser to the first
//     screen of rows painted, time to count the range and paint its last row, and the memory the
//     process holds after each (resident set and its peak since the listing started).
//  2. The exports of the whole file to CSV, XML, ".xlsx" and ".xls", each against
//     `sqlite3 -csv FILE "SELECT * FROM records"` to a file, and the peak memory of each.
//
//   visualisation_bench [--size small|medium|large] [--dir FOLDER] [--repeat N]
//                       [--grid-records N] [--exports csv,xml,xlsx,xls] [--file PATH:NUMBER]
//
// --size chooses the demo site (default large); --dir the working folder (default: the system
// temporary folder; emptied first, removed at the end unless TOVERIN_BENCH_KEEP is set);
// --repeat runs each export and its peer N times (default 3) and keeps the medians;
// --exports the exports measured (default all four); --file measures a record file of the given
// catalogue number (station 1) instead of making a site, the grid's songs file left out: a site
// kept by an earlier run (TOVERIN_BENCH_KEEP) serves again while an export is being tuned.
#include <QApplication>
#include <QHeaderView>
#include <QScrollBar>
#include <QTableView>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/Clock.h"
#include "app/Paths.h"
#include "app/Text.h"
#include "bench/BenchSupport.h"
#include "exports/Export.h"
#include "operations/DataExport.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordCursor.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "tools/DemoSite.h"
#include "ui/RecordTableModel.h"

namespace {

using namespace toverin;
namespace fs = std::filesystem;
using bench::CpuSeconds;
using bench::Median;
using bench::QuietDisk;
using bench::Seconds;
using bench::Steady;

// "VmRSS" or "VmHWM" of /proc/self/status, in MB.
double MemoryMb(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0) return std::stod(line.substr(line.find(':') + 1)) / 1024.0;
    }
    return 0;
}

// Starts a new peak: the kernel forgets the resident set's high-water mark.
void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

struct Result {
    double seconds;
    double cpu;
    double peakMb;
};

Result ExportOnce(ExportFormat format, const CursorSpec& query, const std::string& target) {
    QuietDisk();
    ResetPeak();
    auto start = Steady::now();
    const double cpu = CpuSeconds(RUSAGE_SELF);
    RecordCursor cursor("Bench");
    if (cursor.Open(query) != CursorOpen::Ok) {
        std::fprintf(stderr, "cannot open %s\n", query.path.c_str());
        std::exit(1);
    }
    auto writer = OpenExport(format, target);
    if (ExportRecords(cursor, *writer) != ExportOutcome::Done) {
        std::fprintf(stderr, "export to %s failed: %s\n", target.c_str(),
                     writer->Message().c_str());
        std::exit(1);
    }
    return {Seconds(start), CpuSeconds(RUSAGE_SELF) - cpu, MemoryMb("VmHWM")};
}

Result SqliteCsv(const std::string& path, const std::string& target) {
    std::string command = "sqlite3 -csv '" + path + "' 'SELECT * FROM records' > '" + target + "'";
    QuietDisk();
    auto start = Steady::now();
    const double cpu = CpuSeconds(RUSAGE_CHILDREN);
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "failed: %s\n", command.c_str());
        std::exit(1);
    }
    return {Seconds(start), CpuSeconds(RUSAGE_CHILDREN) - cpu, 0};
}

// A songs file of `records` records (codes 00000000 upwards, titles in 97 kinds), loaded as a
// backup copy is, through a bank of its own.
CursorSpec MakeSongs(const std::string& path, long long records) {
    std::printf("Making %s with %lld songs ...\n", path.c_str(), records);
    CreationFichierBTrieve(path, 22);
    SlotBank bank("Bench");
    bank.OuvertureFichierBTrieve(0, 22, path, 900, 1, btr::kOpenAccelerated);
    std::string key;
    for (long long i = 0; i < records; ++i) {
        std::string record = BlankRecord(22);
        RecordView song(22, record);
        song.SetText("SongId", ZeroPad(i, 8));
        song.SetText("Title", "Titre " + std::to_string(i % 97) + " de la nuit");
        song.SetText("Album", "Album " + std::to_string(i % 1013));
        bank.BTRieve(0, btr::kInsert, record, key, 0, 22, 1, "Bench");
    }
    // A file of a site has its indexes: the load's put-off index of key 0 is built now, untimed.
    std::string record;
    key.clear();
    bank.BTRieve(0, btr::kGetFirst, record, key, 0, 22, 1, "Bench");
    bank.CloseAll();
    return {path, 22, 0, "", "", 0, 1};
}

void MeasureGrid(const CursorSpec& query) {
    std::printf("Grid on %s\n", query.path.c_str());
    {
        ui::RecordTableModel model;
        QTableView view;
        view.resize(1100, 700);
        view.setModel(&model);
        view.verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        view.show();
        view.grab();  // the window is on the screen before Visualiser is pressed
        const double before = MemoryMb("VmRSS");
        ResetPeak();
        auto start = Steady::now();
        double cpu = CpuSeconds(RUSAGE_SELF);
        model.Start(query);
        view.grab();  // paints the first screen: the rows it shows are read now
        const double first = Seconds(start), firstCpu = CpuSeconds(RUSAGE_SELF) - cpu;
        const double firstRss = MemoryMb("VmRSS");
        start = Steady::now();
        cpu = CpuSeconds(RUSAGE_SELF);
        model.CountAll();
        view.scrollToBottom();
        view.grab();
        const double last = Seconds(start), lastCpu = CpuSeconds(RUSAGE_SELF) - cpu;
        std::printf(
            "Grid: first screen of rows          %8.3f s, processor %.3f s  (target: "
            "under 0.3 s)\n",
            first, firstCpu);
        std::printf(
            "Grid: count and paint the last row  %8.3f s, processor %.3f s  (%lld rows, "
            "%lld records cut)\n",
            last, lastCpu, static_cast<long long>(model.rowCount()),
            static_cast<long long>(model.RecordsCut()));
        std::printf(
            "Grid: memory %.1f MB before, %.1f MB at the first screen, %.1f MB at the "
            "last row, peak %.1f MB\n\n",
            before, firstRss, MemoryMb("VmRSS"), MemoryMb("VmHWM"));
    }
}

}  // namespace

int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    DemoSize size = DemoSize::Large;
    std::string folder = (fs::temp_directory_path() / "toverin-visualisation-bench").string();
    int repeat = 3;
    long long gridRecords = 1000000;
    std::string exports = "csv,xml,xlsx,xls", file;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string option = argv[i], value = argv[i + 1];
        if (option == "--size" && ParseDemoSize(value, size)) continue;
        if (option == "--dir")
            folder = value;
        else if (option == "--grid-records")
            gridRecords = std::atoll(value.c_str());
        else if (option == "--exports")
            exports = value;
        else if (option == "--file")
            file = value;
        else if (option == "--repeat")
            repeat = std::max(1, std::atoi(value.c_str()));
        else {
            std::fprintf(stderr,
                         "usage: visualisation_bench [--size small|medium|large] "
                         "[--dir FOLDER] [--repeat N] [--grid-records N] "
                         "[--exports csv,xml,xlsx,xls] [--file PATH:NUMBER]\n");
            return 2;
        }
    }
    std::printf("visualisation_bench --size %s --repeat %d\n", DemoSizeName(size), repeat);
    DemoFile biggest;
    if (!file.empty()) {
        const size_t colon = file.rfind(':');
        biggest.path = file.substr(0, colon);
        biggest.fileNumber = colon == std::string::npos ? -1 : std::atoi(file.c_str() + colon + 1);
        biggest.station = 1;
        gridRecords = 0;
        folder = fs::path(biggest.path).parent_path().string() + "/bench-exports";
        fs::create_directories(folder);
    } else {
        fs::remove_all(folder);
        fs::create_directories(folder);
        std::printf("Making the %s demo site in %s ...\n", DemoSizeName(size), folder.c_str());
        DemoSiteResult demo = CreateDemoSite(folder + "/site/", size, -1, AppClock().Now());
        if (!demo.ok) {
            std::fprintf(stderr, "demo site: %s\n", demo.error.c_str());
            return 1;
        }
        biggest = *std::max_element(
            demo.files.begin(), demo.files.end(),
            [](const DemoFile& a, const DemoFile& b) { return a.records < b.records; });
    }
    const CursorSpec query{
        biggest.path, biggest.fileNumber, 0, "", "", 0, std::max(1, biggest.station)};
    std::printf("File %d \"%s\": %s, %lld records, %.1f MB\n\n", biggest.fileNumber,
                FileDescription(biggest.fileNumber).c_str(), biggest.path.c_str(), biggest.records,
                fs::file_size(biggest.path) / 1e6);

    // 1. The grid, on that file and on a songs file of a million records.
    if (file.empty()) MeasureGrid(query);
    if (gridRecords > 0) MeasureGrid(MakeSongs(folder + "/FRADA22.bt6", gridRecords));

    // 2. The exports against sqlite3 -csv of the same file.
    struct Measure {
        const char* name;
        ExportFormat format;
        double target;
    };
    const Measure measures[] = {{"CSV", ExportFormat::Csv, 2.0},
                                {"XML", ExportFormat::Xml, 2.0},
                                {".xlsx", ExportFormat::Xlsx, 6.0},
                                {".xls", ExportFormat::Xls, 0}};
    std::vector<double> peer, peerCpu;
    auto runPeer = [&] {
        Result r = SqliteCsv(biggest.path, folder + "/peer.csv");
        peer.push_back(r.seconds);
        peerCpu.push_back(r.cpu);
    };
    for (int r = 0; r < repeat; ++r) runPeer();
    std::printf("sqlite3 -csv of the file       %8.3f s, processor %.3f s  (%.1f MB written)\n",
                Median(peer), Median(peerCpu), fs::file_size(folder + "/peer.csv") / 1e6);
    for (const Measure& m : measures) {
        if (("," + exports + ",").find("," + std::string(ExportExtension(m.format)) + ",") ==
            std::string::npos)
            continue;
        std::vector<double> times, cpus, peaks;
        const std::string target = folder + "/export." + ExportExtension(m.format);
        for (int r = 0; r < repeat; ++r) {
            runPeer();  // turn about, so that both meet the page cache and the machine alike
            Result result = ExportOnce(m.format, query, target);
            times.push_back(result.seconds);
            cpus.push_back(result.cpu);
            peaks.push_back(result.peakMb);
        }
        const double ratio = Median(times) / Median(peer);
        const double cpuRatio = Median(cpus) / Median(peerCpu);
        std::printf(
            "Export %-6s %8.3f s  %5.2f x sqlite3; processor %.3f s  %5.2f x sqlite3%s;"
            "  peak %.1f MB  (%.1f MB written)\n",
            m.name, Median(times), ratio, Median(cpus), cpuRatio,
            m.target > 0 ? (ratio <= m.target ? " (target met)" : " (target missed)") : "",
            *std::max_element(peaks.begin(), peaks.end()), fs::file_size(target) / 1e6);
    }
    if (!std::getenv("TOVERIN_BENCH_KEEP") && file.empty()) fs::remove_all(folder);
    return 0;
}
