// The XML import (content/ImportXML.cpp) of a large delivery into an empty base, timed against
// `toverinctl file copy` of the same number of records of the same files in the same run, and
// its memory measured on two deliveries ten times apart in size.
//
//   xmlimport_bench [--records N] [--repeat N] [--dir FOLDER]
//
// The delivery (default 100,000 records) is what a music supplier sends with a season of new
// titles: 30 % songs with some thirty elements, twenty of them label texts turned into codes,
// 25 % their sounds, 25 % sound pointers, 10 % clock lines and 10 % planned spot dates, after the
// labels, the artists and the contracts they name. Each run imports it into a fresh base (the
// files empty, as the demo site's creation leaves them), then copies every file the import wrote
// with `toverinctl file copy` (read by key 0, inserted into a new file in accelerated mode); the
// ratio is import time over the copies' total. --repeat (default 3) gives each run, the
// medians and the fastest of each (the least disturbed on a busy machine). Memory: the import's
// peak resident size above what the process held before it, for a delivery of N/10 records and of N
// records.
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "app/DateTime.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "bench/BenchSupport.h"
#include "content/ImportXML.h"
#include "content/ImportXMLFormat.h"
#include "ctl/Ctl.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"

namespace {

using namespace toverin;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
using bench::CpuSeconds;
using bench::Median;
using bench::Seconds;

// Resident size now and at its peak since the last reset, in MiB (Linux /proc).
double StatusMiB(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(field, 0) == 0) return std::stod(line.substr(std::strlen(field))) / 1024.0;
    return 0;
}
void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

const std::vector<int> kFiles = {0, 5, 6, 7, 20, 21, 22, 25, 26, 30, 31, 1, 2, 3, 4};

// A site of one base under `root` whose data files are all empty.
bool MakeSite(const std::string& root) {
    fs::remove_all(root);
    fs::create_directories(root + "Settings");
    fs::create_directories(root + "C/KV_Data");
    fs::create_directories(root + "C/KV_Config");
    std::ofstream(root + "Settings/KV3_Config.ini")
        << "[Site]\r\nLib=Banc\r\nNbBase=1\r\n[Base_01]\r\nLib=Radio Banc\r\nActif=1\r\n"
           "NbStation=1\r\nDossier_Data=C:\\KV_Data\\\r\nDossier_Config_Global=C:\\KV_Config\\\r\n"
           "Dossier_Log=C:\\Logs\\\r\nDossier_Local=C:\\KV_Local\\\r\n";
    std::ofstream(root + "C/KV_Config/KV3_Systeme.ini") << "[Base_01]\r\nLib=Radio Banc\r\n";
    for (int f : kFiles)
        if (engine::EngineFile::Create(root + "C/KV_Data/" + StationFileName(f, 1),
                                       CreationRecord(f)) != 0)
            return false;
    ResetSite();
    ClearDriveTable();
    SetSuiteRoot(root);
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    return InitGeneralSite() == SiteInitResult::Ok;
}

const char* kLabels[][3] = {{"VOIX", "FEM", "Féminine"},   {"SONOR", "ACOUS", "Acoustique"},
                            {"GROUP", "SOLO", "Solo"},     {"ALBUM", "ALB01", "Album un"},
                            {"PAQUE", "PAQ01", "Été"},     {"CATEG", "NOUV", "Nouveautés"},
                            {"COULE", "ROUGE", "Rouge"},   {"PUISS", "FORT", "Fort"},
                            {"STYLE", "POP", "Pop"},       {"TYPE", "000", "Musique"},
                            {"TEMPO", "RAPID", "Rapide"},  {"THEME", "ETE", "Été"},
                            {"CODEI", "FADE", "Fondu"},    {"CODEO", "CUT", "Coupé"},
                            {"LABEL", "KAV", "Kavella"},   {"DISTR", "NORD", "Nord"},
                            {"INTER", "LM", "Léa Martin"}, {"LIB01", "RADIO", "Radio"},
                            {"AUTEU", "JD", "Jean Dupré"}, {"COMPO", "MR", "Marie Roussel"}};

// The delivery of `records` records described at the top of this file.
void WriteDelivery(const std::string& path, long records) {
    std::ofstream out(path, std::ios::binary);
    auto section = [&](const char* element, bool open) {
        out << (open ? "<" : "</") << element << ">\r\n";
    };
    out << EnteteFichierXML() << "\r\n<KV3>\r\n";
    section("KV3_Diverse", true);
    for (auto& l : kLabels)
        out << XmlItemLine("Diverse")
                   .Attribute("Id", l[1])
                   .Element("Kind", l[0])
                   .Element("Label", l[2])
                   .Line()
            << "\r\n";
    section("KV3_Diverse", false);
    section("KV3_Artist", true);
    for (int a = 1; a <= 50; ++a)
        out << XmlItemLine("Artist")
                   .Attribute("Id", "A" + ZeroPad(a, 4))
                   .Element("Label", "Artiste " + std::to_string(a))
                   .Line()
            << "\r\n";
    section("KV3_Artist", false);
    section("KV3_Customer", true);
    out << XmlItemLine("Customer").Attribute("Id", "CLI00001").Element("Name10", "Client").Line()
        << "\r\n";
    section("KV3_Customer", false);
    section("KV3_Contract", true);
    out << XmlItemLine("Contract")
               .Attribute("N", "1")
               .Attribute("Id", "CLI00001")
               .Element("Label", "Contrat")
               .Line()
        << "\r\n";
    section("KV3_Contract", false);
    section("KV3_CtrSpot", true);
    for (int s = 1; s <= 9; ++s)
        out << XmlItemLine("CtrSpot")
                   .Attribute("N", "1")
                   .Attribute("Id", std::to_string(s))
                   .Element("Duration", "30")
                   .Line()
            << "\r\n";
    section("KV3_CtrSpot", false);
    const long songs = records * 3 / 10, sounds = records / 4, pointers = records / 4,
               clocks = records / 10, dates = records - songs - sounds - pointers - clocks;
    auto id = [](long i) { return ZeroPad(10000000 + i, 8); };
    section("KV3_Workshop", true);
    for (long i = 0; i < songs; ++i) {
        out << XmlItemLine("Workshop")
                   .Attribute("Id", id(i))
                   .Element("Title", "Titre numéro " + std::to_string(i))
                   .Element("Artist1", "A" + ZeroPad(i % 50 + 1, 4))
                   .Element("Duration", std::to_string(180000 + i % 60000))
                   .Element("Quota", "90")
                   .Element("Voice", "Féminine")
                   .Element("Sonority", "Acoustique")
                   .Element("Group", "Solo")
                   .Element("Album", "Album un")
                   .Element("Lot", "Été")
                   .Element("Category", "Nouveautés")
                   .Element("Coef", "Rouge")
                   .Element("Power", "Fort")
                   .Element("Style", "Pop")
                   .Element("Type", "Musique")
                   .Element("Tempo", "Rapide")
                   .Element("BPM", "120")
                   .Element("Subject", "Été")
                   .Element("Year", "2025")
                   .Element("Intro_Duration", "12000")
                   .Element("CodeIn", "Fondu")
                   .Element("CodeOut", "Coupé")
                   .Element("Label", "Kavella")
                   .Element("Distributor", "Nord")
                   .Element("Interpreter", "Léa Martin")
                   .Element("Extension", "wav")
                   .Element("ValidityDateStart", "20260101")
                   .Element("Zones", "22222")
                   .Element("Label1", "Radio")
                   .Element("Author", "Jean Dupré")
                   .Cdata("Composer", "Marie Roussel")
                   .Element("TitleVersion", "Version radio")
                   .Element("Drive", "C")
                   .Element("Recorded", id(i))
                   .Line()
            << "\r\n";
    }
    section("KV3_Workshop", false);
    section("KV3_Workshop_Sound", true);
    for (long i = 0; i < sounds; ++i)
        out << XmlItemLine("Workshop_Sound")
                   .Attribute("Id", id(i % songs))
                   .Element("CodeType", "M")
                   .Element("Drive", "C")
                   .Element("Recorded", id(i))
                   .Element("Stereo", "S")
                   .Line()
            << "\r\n";
    section("KV3_Workshop_Sound", false);
    section("KV3_Sound", true);
    for (long i = 0; i < pointers; ++i)
        out << XmlItemLine("Ptx_Event")
                   .Attribute("Id", id(i % songs))
                   .Attribute("N", "1")
                   .Element("Ptx", i < songs ? "INT" : "OUT")
                   .Element("Position", std::to_string(12000 + i % 500))
                   .Element("Duration", "200000")
                   .Element("Periph", "1")
                   .Line()
            << "\r\n";
    section("KV3_Sound", false);
    section("KV3_Clock", true);
    for (long i = 0; i < clocks; ++i)
        out << XmlItemLine("Clock_Event")
                   .Attribute("N", std::to_string(i % 999 + 1))
                   .Element("Clock", "H" + ZeroPad(i / 999, 4))
                   .Element("Icons", "1")
                   .Element("NoPeriph", "1")
                   .Element("Time", "00:15:00")
                   .Element("Filling", "A")
                   .Element("CategoryFilling", "NOUV")
                   .Element("WishedDuration", "210")
                   .Element("Code", "CATEGNOUV")
                   .Element("Type", "000")
                   .Line()
            << "\r\n";
    section("KV3_Clock", false);
    section("KV3_CtrSpotSchedule", true);
    for (long i = 0; i < dates; ++i) {
        const LocalTime day = AddDays(MakeLocalTime(2026, 1, 1), static_cast<int>(i / 600));
        out << XmlItemLine("CtrSpotSchedule")
                   .Attribute("N", "1")
                   .Attribute("Id", std::to_string(i % 9 + 1))
                   .Element("CtrSpotDatePre", DateKey(day))
                   .Element("HourEcr", ZeroPad(i / 9 % 24, 2) + ":" + ZeroPad(i / 216 % 60, 2))
                   .Line()
            << "\r\n";
    }
    section("KV3_CtrSpotSchedule", false);
    out << "</KV3>\r\n";
}

// Prints when each phase of the import starts (wall and processor time since the start).
class PhaseClock final : public ProgressObserver {
  public:
    explicit PhaseClock(bool print) : print_(print) {}
    void OnProgress(const progress::Event& event) override {
        if (!print_) return;
        if (const auto* p = std::get_if<progress::PhaseChanged>(&event))
            std::printf(
                "  %-36s at %.3f s (processor %.3f s, resident %.1f MiB, SQLite %.1f MiB)\n",
                p->phase.c_str(), Seconds(start_), Cpu() - cpu_, StatusMiB("VmRSS:"),
                sqlite3_memory_used() / 1048576.0);
        if (std::get_if<progress::Ended>(&event))
            std::printf("  %-36s at %.3f s (processor %.3f s)\n", "end", Seconds(start_),
                        Cpu() - cpu_);
    }

  private:
    static double Cpu() {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return u.ru_utime.tv_sec + u.ru_stime.tv_sec +
               (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    }
    bool print_;
    Steady::time_point start_ = Steady::now();
    double cpu_ = Cpu();
};

struct Run {
    double import = 0;
    double copies = 0;
    double importCpu = 0;
    double copiesCpu = 0;
    long long copied = 0;
    double peakMiB = 0;
    double sqlitePeakMiB = 0;
    ImportXMLResultat result;
};

Run ImportThenCopy(const std::string& root, const std::string& delivery, bool copy) {
    Run run;
    if (!MakeSite(root)) {
        std::fprintf(stderr, "cannot make the site under %s\n", root.c_str());
        std::exit(1);
    }
    ImportXMLOptions options;
    options.base = 0;
    options.station = 1;
    options.boxes = false;
    const double before = StatusMiB("VmRSS:");
    const double sqliteBefore = sqlite3_memory_used() / 1048576.0;
    ResetPeak();
    sqlite3_memory_highwater(1);
    auto start = Steady::now();
    const double cpu = CpuSeconds();
    {
        SlotBank bank("bench");
        PhaseClock progress(std::getenv("TOVERIN_BENCH_PHASES") != nullptr);
        run.result = ImportXMLImporter(delivery, options, bank, progress);
    }
    run.import = Seconds(start);
    run.importCpu = CpuSeconds() - cpu;
    run.peakMiB = StatusMiB("VmHWM:") - before;
    run.sqlitePeakMiB = sqlite3_memory_highwater(0) / 1048576.0 - sqliteBefore;
    if (!run.result.ended || run.result.refused || run.result.missing) {
        std::fprintf(stderr, "import failed: %s %s\n", run.result.message.c_str(),
                     run.result.refusals.empty() ? "" : run.result.refusals[0].Text().c_str());
        std::exit(1);
    }
    if (!copy) return run;
    for (int f : kFiles) {
        const std::string source = root + "C/KV_Data/" + StationFileName(f, 1);
        const long long n = RecordCountOfFile(source);
        if (n <= 0) continue;
        const std::string target = root + "copy_" + StationFileName(f, 1);
        fs::remove(target);
        std::ostringstream said;  // the command's own line, not for the bench's output
        auto* previous = std::cout.rdbuf(said.rdbuf());
        auto copyStart = Steady::now();
        const double copyCpu = CpuSeconds();
        const int status = ctl::RunCtl({"file", "copy", source, target});
        run.copies += Seconds(copyStart);
        run.copiesCpu += CpuSeconds() - copyCpu;
        std::cout.rdbuf(previous);
        if (status != 0) {
            std::fprintf(stderr, "copy of %s failed\n", source.c_str());
            std::exit(1);
        }
        run.copied += n;
    }
    return run;
}

// The import's peak resident size above what its process held before it, measured in a child
// process made before any other measure (so that nothing allocated and freed earlier hides a
// growth), and the part of it that is SQLite's: the page caches of the files being written,
// which the engine bounds (8 MiB per file, 128 MiB for a file written in accelerated mode) and
// a copy of the same records holds as well. The rest is the import's own.
struct Peaks {
    double resident = -1;
    double sqlite = -1;
};
Peaks PeaksInChild(const std::string& root, const std::string& delivery) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return {};
    const pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        Run run = ImportThenCopy(root, delivery, false);
        const Peaks peaks{run.peakMiB, run.sqlitePeakMiB};
        const ssize_t written = write(pipeEnds[1], &peaks, sizeof peaks);
        _exit(written == sizeof peaks ? 0 : 1);
    }
    close(pipeEnds[1]);
    Peaks peaks;
    if (read(pipeEnds[0], &peaks, sizeof peaks) != sizeof peaks) peaks = {};
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return peaks;
}

}  // namespace

int main(int argc, char** argv) {
    long records = 100000;
    int repeat = 3;
    std::string dir = fs::temp_directory_path().string() + "/toverin-xmlimport-bench/";
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string name = argv[i];
        if (name == "--records")
            records = std::stol(argv[i + 1]);
        else if (name == "--repeat")
            repeat = std::stoi(argv[i + 1]);
        else if (name == "--dir")
            dir = std::string(argv[i + 1]) + "/";
    }
    LogConfig().enabled = false;
    fs::create_directories(dir);
    const std::string big = dir + "delivery.xml", small = dir + "delivery_tenth.xml";
    WriteDelivery(big, records);
    WriteDelivery(small, records / 10);
    std::printf("delivery: %ld records, %.1f MB\n", records, fs::file_size(big) / 1e6);
    // Memory first, in children of a process that has done nothing else yet.
    const Peaks tenth = PeaksInChild(dir + "site/", small);
    const Peaks full = PeaksInChild(dir + "site/", big);

    if (std::getenv("TOVERIN_BENCH_IMPORT_ONLY")) {  // for profiling the import alone
        for (int r = 0; r < repeat; ++r) ImportThenCopy(dir + "site/", big, false);
        return 0;
    }
    std::vector<double> imports, copies, ratios, cpuRatios;
    Run last;
    for (int r = 0; r < repeat; ++r) {
        last = ImportThenCopy(dir + "site/", big, true);
        imports.push_back(last.import);
        copies.push_back(last.copies);
        ratios.push_back(last.import / last.copies);
        cpuRatios.push_back(last.importCpu / last.copiesCpu);
        std::printf(
            "run %d: import %.3f s (processor %.3f s; %ld records, %.0f/s), file copy "
            "%.3f s (processor %.3f s; %lld records), ratio %.2f (processor %.2f)\n",
            r + 1, last.import, last.importCpu, last.result.read, last.result.read / last.import,
            last.copies, last.copiesCpu, last.copied, last.import / last.copies,
            last.importCpu / last.copiesCpu);
    }
    std::printf(
        "median: import %.3f s, file copy %.3f s, ratio %.2f (target: at most 3), "
        "processor-time ratio %.2f\n",
        Median(imports), Median(copies), Median(ratios), Median(cpuRatios));
    const double fastestImport = *std::min_element(imports.begin(), imports.end());
    const double fastestCopy = *std::min_element(copies.begin(), copies.end());
    std::printf("fastest: import %.3f s, file copy %.3f s, ratio %.2f\n", fastestImport,
                fastestCopy, fastestImport / fastestCopy);
    std::printf(
        "memory: import peak %.1f MiB above the process's size before it, of which "
        "SQLite's page caches %.1f MiB, the import's own %.1f MiB, for %ld records; %.1f "
        "MiB, of which SQLite %.1f MiB, own %.1f MiB, for %ld records\n",
        tenth.resident, tenth.sqlite, tenth.resident - tenth.sqlite, records / 10, full.resident,
        full.sqlite, full.resident - full.sqlite, records);
    if (!std::getenv("TOVERIN_BENCH_KEEP")) fs::remove_all(dir);
    return 0;
}
