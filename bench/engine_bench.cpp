// Record engine throughput on a file of 400-byte records with three keys: inserts (normal and
// accelerated), the index builds a bulk load leaves to the first reads, Get Next over the whole
// file, Get Equal at random, Update, and a record-by-record copy through BTRCALL into an
// accelerated file, timed against SQLite's own VACUUM INTO of the same file in the same run.
//
//   engine_bench [--records N] [--normal N] [--runs N] [--dir FOLDER] [--copy-only 1]
//                [--scan-only 1] [--base 0]
//
// --runs repeats the accelerated insert, the scans, the copy with its peer and the backup with
// its peer (default 3) and prints the medians. --copy-only fills the source without timing it
// and runs only the copy and its peer (for profiling the copy); --scan-only the same for the
// Get Next scans. --base 0 leaves out the backup of a whole base (files of many sizes, as many
// records in all as --records).
#include <sqlite3.h>
#include <sys/resource.h>
#include <algorithm>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "bench/BenchSupport.h"
#include "store/engine/Btrieve.h"
#include "store/engine/EngineFile.h"

namespace {

using namespace toverin;
using engine::EngineFile;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using bench::CpuSeconds;
using bench::Median;
using bench::Seconds;

constexpr uint16_t kRecordLength = 400;

btr::PbTBtrFileBuf BenchFileBuf() {
    btr::PbTBtrFileBuf fileBuf{};
    fileBuf.RecLen = kRecordLength;
    fileBuf.PageSize = 4096;
    fileBuf.IndxCnt = 3;
    auto segment = [&](int i, uint16_t position, uint16_t length, uint16_t flags) {
        fileBuf.Keys[i].position = position;
        fileBuf.Keys[i].length = length;
        fileBuf.Keys[i].flags = flags;
    };
    segment(0, 1, 8, 0);      // song number, unique
    segment(1, 9, 30, 1027);  // title: duplicates, modifiable, case-insensitive
    segment(2, 39, 2, 19);    // station + date: segmented, duplicates
    segment(3, 41, 8, 3);
    return fileBuf;
}

struct Random {
    uint64_t state;
    uint64_t Next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
};

void MakeRecord(uint64_t number, Random& random, std::string& record) {
    static const char* words[] = {"Amour", "nuit",  "Soleil", "danse", "Reve",   "ciel",
                                  "Coeur", "route", "Ville",  "mer",   "Etoile", "temps"};
    record.assign(kRecordLength, ' ');
    char text[64];
    std::snprintf(text, sizeof text, "%08llu", static_cast<unsigned long long>(number));
    std::memcpy(&record[0], text, 8);
    int n = std::snprintf(text, sizeof text, "%s %s %u", words[random.Next() % 12],
                          words[random.Next() % 12], static_cast<unsigned>(random.Next() % 500));
    std::memcpy(&record[8], text, static_cast<size_t>(n));
    std::snprintf(text, sizeof text, "%02u2026%02u%02u",
                  static_cast<unsigned>(random.Next() % 10 + 1),
                  static_cast<unsigned>(random.Next() % 12 + 1),
                  static_cast<unsigned>(random.Next() % 28 + 1));
    std::memcpy(&record[38], text, 10);
    for (size_t i = 48; i < kRecordLength; i += 8) {
        uint64_t v = random.Next();
        std::memcpy(&record[i], &v, std::min<size_t>(8, kRecordLength - i));
    }
}

std::string NumberKey(uint64_t number) {
    char text[24];
    std::snprintf(text, sizeof text, "%08llu", static_cast<unsigned long long>(number));
    return std::string(text, 8) + std::string(247, '\0');
}

long PeakRssMb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

void Report(const char* what, uint64_t records, double seconds) {
    std::printf("%-44s %9llu records %8.3f s %12.0f records/s   (peak RSS %ld MB)\n", what,
                static_cast<unsigned long long>(records), seconds, records / seconds, PeakRssMb());
    std::fflush(stdout);
}

[[noreturn]] void Fail(const char* what, int status) {
    std::fprintf(stderr, "%s: status %d\n", what, status);
    std::exit(1);
}

void Check(int16_t status, const char* what) {
    if (status != btr::kSuccess) Fail(what, status);
}

// Inserts records 1..count into a fresh file; the time includes the Close that makes them durable.
double Fill(const std::string& path, uint64_t count, int8_t mode) {
    Check(EngineFile::Create(path, BenchFileBuf()), "create");
    auto start = Clock::now();
    EngineFile file;
    Check(file.Open(path, mode), "open");
    Random random{0x9E3779B97F4A7C15ull};
    std::string record, key(255, '\0');
    for (uint64_t n = 1; n <= count; ++n) {
        MakeRecord(n, random, record);
        Check(file.Call(btr::kInsert, record, key, 0), "insert");
    }
    Check(file.Close(), "close");
    return Seconds(start);
}

// The first read by each key after a bulk load builds that key's index (in normal mode: a
// read-only open leaves the file as it is). Returns the total time.
double FirstReads(const std::string& path, bool report) {
    double total = 0;
    for (int8_t key = 0; key < 3; ++key) {
        EngineFile file;
        Check(file.Open(path, btr::kOpenNormal), "open");
        std::string record(kRecordLength, '\0'), keyBuffer(255, '\0');
        auto start = Clock::now();
        Check(file.Call(btr::kGetFirst, record, keyBuffer, key), "first read");
        double seconds = Seconds(start);
        total += seconds;
        if (report) {
            std::string what = "first read by key " + std::to_string(key) + " (builds its index)";
            Report(what.c_str(), 1, seconds);
        }
    }
    return total;
}

// `positions`: each record's position is asked for too (Get Position), as a caller that
// remembered the position of every record it reads would.
uint64_t ScanAll(const std::string& path, int8_t keyNumber, double& seconds, double& cpuSeconds,
                 bool positions = false) {
    double cpu = CpuSeconds();
    auto start = Clock::now();
    EngineFile file;
    Check(file.Open(path, btr::kOpenReadOnly), "open");
    std::string record(kRecordLength, '\0'), key(255, '\0'), position(kRecordLength, '\0');
    uint64_t count = 0;
    int16_t status = file.Call(btr::kGetFirst, record, key, keyNumber);
    while (status == btr::kSuccess) {
        ++count;
        if (positions) Check(file.Call(btr::kGetPosition, position, key, keyNumber), "position");
        status = file.Call(btr::kGetNext, record, key, keyNumber);
    }
    if (status != btr::kEndOfFile) Fail("get next", status);
    seconds = Seconds(start);
    cpuSeconds = CpuSeconds() - cpu;
    return count;
}

// Get Next over the whole file by key 0 and by key 1, `runs` times each; prints each run and
// returns the medians of key 0 (records per second of elapsed and of processor time).
struct ScanRates {
    double wall = 0, cpu = 0;
    // Key 0 with a Get Position after every read, records/s of elapsed and of processor time.
    double withPositions = 0, withPositionsCpu = 0;
};
ScanRates MeasureScans(const std::string& source, uint64_t records, int runs) {
    std::vector<double> walls, cpus, positioned, positionedCpu;
    for (int run = 0; run < runs; ++run) {
        double seconds = 0, cpu = 0;
        uint64_t count = ScanAll(source, 0, seconds, cpu, true);
        if (count != records) Fail("scan count", static_cast<int>(count));
        Report("Get Next and Get Position over the file, key 0", count, seconds);
        positioned.push_back(count / seconds);
        positionedCpu.push_back(count / cpu);
        for (int8_t key : {0, 1}) {
            double seconds = 0, cpu = 0;
            uint64_t count = ScanAll(source, key, seconds, cpu);
            if (count != records) Fail("scan count", static_cast<int>(count));
            Report(key == 0 ? "Get Next over the file, key 0 (unique)"
                            : "Get Next over the file, key 1 (duplicates)",
                   count, seconds);
            if (key == 0) {
                walls.push_back(count / seconds);
                cpus.push_back(count / cpu);
            }
        }
    }
    return {Median(walls), Median(cpus), Median(positioned), Median(positionedCpu)};
}

// Inserts, scans, searches and updates; leaves the source file filled.
// Returns the median accelerated insert time, and the scans' medians in `scans`.
double MeasureAccess(const fs::path& dir, const std::string& source, uint64_t records,
                     uint64_t normal, int runs, ScanRates& scans) {
    Report("insert, normal mode (one sync per write)", normal,
           Fill((dir / "normal.bt6").string(), normal, btr::kOpenNormal));
    std::vector<double> fills;
    for (int run = 0; run < runs; ++run) {
        fills.push_back(Fill(source, records, btr::kOpenAccelerated));
        Report("insert, accelerated mode (durable at Close)", records, fills.back());
    }
    double builds = FirstReads(source, true);
    Report("  all three first reads", 3, builds);

    scans = MeasureScans(source, records, runs);

    {
        uint64_t lookups = std::min<uint64_t>(records, 200000);
        EngineFile file;
        Check(file.Open(source, btr::kOpenReadOnly), "open");
        Random random{12345};
        std::string record(kRecordLength, '\0');
        auto start = Clock::now();
        for (uint64_t i = 0; i < lookups; ++i) {
            std::string key = NumberKey(random.Next() % records + 1);
            Check(file.Call(btr::kGetEqual, record, key, 0), "get equal");
        }
        Report("Get Equal at random, key 0", lookups, Seconds(start));
    }

    auto updateRun = [&](uint64_t updates, int8_t mode, const char* what) {
        EngineFile file;
        Check(file.Open(source, mode), "open");
        Random random{777};
        std::string record(kRecordLength, '\0');
        auto start = Clock::now();
        for (uint64_t i = 0; i < updates; ++i) {
            std::string key = NumberKey(random.Next() % records + 1);
            record.assign(kRecordLength, '\0');
            Check(file.Call(btr::kGetEqual, record, key, 0), "get equal");
            record[100] = static_cast<char>('A' + i % 26);  // not part of any key
            Check(file.Call(btr::kUpdate, record, key, 0), "update");
        }
        Check(file.Close(), "close");
        Report(what, updates, Seconds(start));
    };
    updateRun(normal, btr::kOpenNormal, "Get Equal + Update, normal mode");
    updateRun(std::min<uint64_t>(records, 200000), btr::kOpenAccelerated,
              "Get Equal + Update, accelerated mode");
    return Median(fills);
}

double VacuumInto(const std::string& source, const std::string& target) {
    fs::remove(target);
    sqlite3* db = nullptr;
    sqlite3_open_v2(source.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::string sql = "VACUUM INTO '" + target + "'";
    auto start = Clock::now();
    int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    double seconds = Seconds(start);
    sqlite3_close(db);
    if (rc != SQLITE_OK) Fail("vacuum into", rc);
    return seconds;
}

// The copy that backups and restores make: every record read in key 0 order and inserted into
// a fresh file opened in accelerated mode, up to and including its Close. `loop` receives the
// time before Close.
double CopyThroughEngine(const std::string& source, const std::string& target, double& loop) {
    Check(EngineFile::Create(target, BenchFileBuf()), "create target");
    auto start = Clock::now();
    {
        EngineFile from, to;
        Check(from.Open(source, btr::kOpenReadOnly), "open source");
        Check(to.Open(target, btr::kOpenAccelerated), "open target");
        std::string record(kRecordLength, '\0'), key(255, '\0');
        int16_t status = from.Call(btr::kGetFirst, record, key, 0);
        while (status == btr::kSuccess) {
            Check(to.Call(btr::kInsert, record, key, 0), "copy insert");
            status = from.Call(btr::kGetNext, record, key, 0);
        }
        if (status != btr::kEndOfFile) Fail("copy read", status);
        loop = Seconds(start);
        Check(to.Close(), "close target");
    }
    return Seconds(start);
}

// A fresh copy read read-only, as a check or a restore reads a backup's copy: its indexes put
// off, key 0 is read in row order and key 1 through a sorted stand-in for its index, and the
// file is left as it is.
void MeasureCopyReads(const std::string& source, const std::string& target, uint64_t records) {
    double loop = 0;
    CopyThroughEngine(source, target, loop);
    for (int8_t key : {0, 1}) {
        double seconds = 0, cpu = 0;
        uint64_t count = ScanAll(target, key, seconds, cpu);
        if (count != records) Fail("copy scan count", static_cast<int>(count));
        Report(key == 0 ? "Get Next over a fresh copy, read-only, key 0"
                        : "Get Next over a fresh copy, read-only, key 1",
               count, seconds);
    }
    fs::remove(target);
}

}  // namespace

// A backup of a whole base: every file copied record by record into a fresh accelerated file,
// against VACUUM INTO of every file. The base: a few large files and many small ones, `records`
// in all, each a complete file of the benchmark's layout. Returns the median time ratio.
double MeasureBackup(const fs::path& dir, uint64_t records, int runs) {
    std::vector<uint64_t> sizes;
    for (double share : {0.6, 0.2, 0.1, 0.05, 0.02, 0.01, 0.005})
        sizes.push_back(static_cast<uint64_t>(records * share));
    for (int i = 0; i < 30; ++i) sizes.push_back(records * 15 / 1000 / 30);
    fs::path base = dir / "base", backup = dir / "backup";
    fs::create_directories(base);
    fs::create_directories(backup);
    std::vector<std::string> names;
    uint64_t total = 0;
    for (uint64_t& size : sizes) {
        size = std::max<uint64_t>(size, 1);
        char name[16];
        std::snprintf(name, sizeof name, "FRAD%03zu.bt6", names.size() + 1);
        names.push_back(name);
        Fill((base / name).string(), size, btr::kOpenAccelerated);
        FirstReads((base / name).string(), false);
        total += size;
    }
    std::vector<double> ratios;
    for (int run = 0; run < runs; ++run) {
        double vacuum = 0, copies = 0, loop = 0;
        auto vacuumAll = [&] {
            for (const std::string& name : names)
                vacuum += VacuumInto((base / name).string(), (backup / (name + ".db")).string());
        };
        if (run % 2 == 0) vacuumAll();
        for (const std::string& name : names)
            copies += CopyThroughEngine((base / name).string(), (backup / name).string(), loop);
        if (run % 2 == 1) vacuumAll();
        ratios.push_back(copies / vacuum);
        std::printf(
            "backup of a base of %zu files, %llu records: VACUUM INTO %.3f s, copies "
            "through BTRCALL %.3f s, ratio %.2f\n",
            names.size(), static_cast<unsigned long long>(total), vacuum, copies, ratios.back());
    }
    return Median(ratios);
}

int main(int argc, char** argv) {
    uint64_t records = 1000000;
    uint64_t normal = 2000;
    int runs = 3;
    std::string folder;
    bool copyOnly = false;
    bool scanOnly = false;
    bool backup = true;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string option = argv[i];
        if (option == "--records")
            records = std::strtoull(argv[i + 1], nullptr, 10);
        else if (option == "--normal")
            normal = std::strtoull(argv[i + 1], nullptr, 10);
        else if (option == "--runs")
            runs = std::max(1, std::atoi(argv[i + 1]));
        else if (option == "--dir")
            folder = argv[i + 1];
        else if (option == "--copy-only")
            copyOnly = std::string(argv[i + 1]) != "0";
        else if (option == "--scan-only")
            scanOnly = std::string(argv[i + 1]) != "0";
        else if (option == "--base")
            backup = std::string(argv[i + 1]) != "0";
    }
    fs::path dir =
        folder.empty() ? fs::temp_directory_path() / "toverin-engine-bench" : fs::path(folder);
    fs::remove_all(dir);
    fs::create_directories(dir);
    std::string source = (dir / "FRADB22.bt6").string();
    std::printf("Record engine: %llu records of %u bytes, 3 keys, SQLite %s, folder %s\n",
                static_cast<unsigned long long>(records), kRecordLength, sqlite3_libversion(),
                dir.string().c_str());

    double fill = 0;
    ScanRates scans;
    if (copyOnly || scanOnly) {
        Fill(source, records, btr::kOpenAccelerated);
        FirstReads(source, false);  // the source is a complete file, as a live base's files are
        if (scanOnly) {
            scans = MeasureScans(source, records, runs);
            std::printf("\nmedian of %d runs:\n", runs);
            std::printf(
                "Get Next, key 0: %.0f records/s (target at least 1000000); %.0f "
                "records per second of processor time\n",
                scans.wall, scans.cpu);
            std::printf(
                "Get Next and Get Position, key 0: %.0f records/s; %.0f records per second of "
                "processor time (%.2f of Get Next alone)\n",
                scans.withPositions, scans.withPositionsCpu, scans.withPositionsCpu / scans.cpu);
            if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
            return 0;
        }
    } else {
        fill = MeasureAccess(dir, source, records, normal, runs, scans);
    }

    // The copy against SQLite copying the same file by itself. Whichever runs second meets the
    // page cache and the disk as the first left them, so they take turns at going first.
    std::string vacuumTarget = (dir / "vacuum.db").string();
    std::string target = (dir / "FRADC22.bt6").string();
    std::vector<double> ratios, withBuilds, cpuRatios;
    for (int run = 0; run < runs; ++run) {
        double vacuum = 0, loop = 0, copy = 0, vacuumCpu = 0, copyCpu = 0;
        auto peer = [&] {
            double cpu = CpuSeconds();
            vacuum = VacuumInto(source, vacuumTarget);
            vacuumCpu = CpuSeconds() - cpu;
        };
        if (run % 2 == 0) peer();
        double cpu = CpuSeconds();
        copy = CopyThroughEngine(source, target, loop);
        copyCpu = CpuSeconds() - cpu;
        if (run % 2 == 1) peer();
        Report("SQLite VACUUM INTO (peer)", records, vacuum);
        Report("record-by-record copy through BTRCALL", records, copy);
        double builds = FirstReads(target, false);
        std::printf(
            "  reads and inserts %.3f s, Close %.3f s; later, first reads by each key "
            "(index builds) %.3f s\n",
            loop, copy - loop, builds);
        ratios.push_back(copy / vacuum);
        withBuilds.push_back((copy + builds) / vacuum);
        cpuRatios.push_back(copyCpu / vacuumCpu);
        std::printf(
            "  copy / VACUUM INTO %.2f, with the later index builds %.2f; processor time "
            "%.3f s / %.3f s = %.2f\n",
            ratios.back(), withBuilds.back(), copyCpu, vacuumCpu, cpuRatios.back());
    }
    std::printf("file sizes: source %.0f MB, copy %.0f MB (indexes built), VACUUM INTO %.0f MB\n",
                fs::file_size(source) / 1e6, fs::file_size(target) / 1e6,
                fs::file_size(vacuumTarget) / 1e6);
    fs::remove(target);
    fs::remove(vacuumTarget);
    if (!copyOnly) MeasureCopyReads(source, target, records);
    double backupRatio = backup && !copyOnly ? MeasureBackup(dir, records, runs) : 0;

    std::printf("\nmedian of %d runs:\n", runs);
    if (!copyOnly) {
        std::printf("accelerated insert: %.0f records/s (target at least 250000)\n",
                    records / fill);
        std::printf(
            "Get Next, key 0: %.0f records/s (target at least 1000000); %.0f records "
            "per second of processor time\n",
            scans.wall, scans.cpu);
    }
    std::printf("copy / VACUUM INTO time ratio: %.2f (target at most 2.0)\n", Median(ratios));
    std::printf("copy and its later index builds / VACUUM INTO time ratio: %.2f\n",
                Median(withBuilds));
    std::printf("copy / VACUUM INTO processor time ratio: %.2f\n", Median(cpuRatios));
    if (backupRatio > 0)
        std::printf("backup / VACUUM INTO of every file, time ratio: %.2f (target at most 2.5)\n",
                    backupRatio);
    if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
    return 0;
}
