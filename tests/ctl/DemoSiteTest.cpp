#include "tools/DemoSite.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "app/DateTime.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/ImportXML.h"
#include "store/Catalogue.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::RunCaptured;
using testing::TempDir;

const LocalTime kToday = MakeLocalTime(2026, 3, 2, 15, 30);
constexpr int kSmallHistory = 7;

// Every record of a file in the order of key `key`.
std::vector<std::string> ReadAll(const std::string& path, int key) {
    engine::EngineFile file;
    EXPECT_EQ(file.Open(path, btr::kOpenReadOnly), btr::kSuccess) << path;
    btr::PbTBtrFileBuf fileBuf;
    file.Stat(fileBuf);
    std::vector<std::string> records;
    std::string record(fileBuf.RecLen, '\0'), value(255, '\0');
    int16_t status = file.Call(btr::kGetFirst, record, value, static_cast<int8_t>(key));
    while (status == btr::kSuccess) {
        records.push_back(record);
        status = file.Call(btr::kGetNext, record, value, static_cast<int8_t>(key));
    }
    EXPECT_EQ(status, btr::kEndOfFile) << path;
    return records;
}

bool IsDate(const std::string& text) {
    if (text.size() != 8) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    int month = std::stoi(text.substr(4, 2)), day = std::stoi(text.substr(6, 2));
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

class DemoSiteTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir = new TempDir;
        site =
            new DemoSiteResult(CreateDemoSite(dir->folder() + "site", DemoSize::Small, -1, kToday));
    }
    static void TearDownTestSuite() {
        delete site;
        delete dir;
    }
    static std::string FileOf(int base, int fileNumber, int station) {
        return site->dataFolders[static_cast<size_t>(base)] + StationFileName(fileNumber, station);
    }
    static std::set<std::string> SongCodes(int base, int station) {
        std::set<std::string> codes;
        for (const std::string& r : ReadAll(FileOf(base, 22, station), 0))
            codes.insert(RecordView(22, r).Text("SongId"));
        return codes;
    }

    static TempDir* dir;
    static DemoSiteResult* site;
};

TempDir* DemoSiteTest::dir = nullptr;
DemoSiteResult* DemoSiteTest::site = nullptr;

TEST_F(DemoSiteTest, EveryCatalogueFileExistsAndTheProgramFindsTheBases) {
    ASSERT_TRUE(site->ok) << site->error;
    ASSERT_EQ(site->dataFolders.size(), 2u);
    size_t expected = 0;
    for (int base = 0; base < kDemoBases; ++base) {
        for (int n = 0; n < kCatalogueSize; ++n) {
            if (!CatalogueEntryFor(n).Exists()) continue;
            const int stations = CatalogueEntryFor(n).perStation == 'O' ? kDemoStations : 1;
            for (int s = 1; s <= stations; ++s, ++expected)
                EXPECT_TRUE(fs::exists(FileOf(base, n, s))) << FileOf(base, n, s);
        }
    }
    EXPECT_EQ(site->files.size(), expected);

    // The program reads the site as it would at start-up: two bases of three stations, each
    // database present where its configuration says, so nobody is asked anything.
    testing::ScopedLogAndRegistry env{*dir};
    testing::ScriptedDialogs dialogs;
    ResetSite();
    ClearDriveTable();
    SetSuiteRoot(dir->folder() + "site");
    DetermineDossierSettings();
    DetermineFichierConfig();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_EQ(Site().name, "Radio Kavella (démo)");
    ASSERT_EQ(Site().bases.size(), 2u);
    for (int b = 0; b < 2; ++b) {
        const BaseConfig& base = Site().bases[static_cast<size_t>(b)];
        EXPECT_TRUE(base.active);
        EXPECT_TRUE(base.databasePresent);
        EXPECT_EQ(base.dataFolder, site->dataFolders[static_cast<size_t>(b)]);
        EXPECT_EQ(base.stationCount, 3);
        EXPECT_EQ(base.configFolder,
                  dir->folder() + "site/C/KV_Config/Base" + std::to_string(b + 1) + "/");
        // Sample deliveries wait in the Import tab's default folder, with the music settings.
        const std::string source = ImportXMLDossierSourceParDefaut(b);
        EXPECT_EQ(source,
                  dir->folder() + "site/C/KV_Shared/Base" + std::to_string(b + 1) + "/Import_XML/");
        EXPECT_TRUE(fs::exists(source + "Livraison_Commerciale.xml"));
        EXPECT_TRUE(fs::exists(source + "Livraison_Programmes.xml"));
        EXPECT_TRUE(fs::exists(base.configFolder + "BK_MUS.ini"));
    }
    EXPECT_EQ(Site().bases[0].label, "Kavella FM");
    EXPECT_EQ(Site().bases[0].stations[1].label, "Kavella Arras");
    EXPECT_EQ(DetermineDossierConfig_Bases_Libelle(1), "Kavella Info");
    EXPECT_EQ(Site().bases[0].stations[2].soundFolders[0],
              dir->folder() + "site/C/KV_Sons/Base1/Station03/Musique/");
    ResetSite();
}

TEST_F(DemoSiteTest, EveryFilePassesTheCheckAndTheMainFilesHoldData) {
    ASSERT_TRUE(site->ok) << site->error;
    std::map<int, long long> least;  // file number -> fewest records over its stations
    for (const DemoFile& f : site->files) {
        testing::CtlRun check = RunCaptured({"file", "check", f.path});
        EXPECT_EQ(check.status, 0) << check.out;
        auto [it, fresh] = least.try_emplace(f.fileNumber, f.records);
        if (!fresh) it->second = std::min(it->second, f.records);
    }
    for (int n : {0,  1,  2,  3,  4,  5,  6,  7,  10, 17, 18, 20, 21, 22, 23,
                  24, 26, 27, 28, 29, 30, 33, 34, 35, 37, 46, 47, 48, 49})
        EXPECT_GT(least[n], 0) << "file " << n;
    EXPECT_EQ(least[20], 20);  // artists
    EXPECT_EQ(ReadAll(FileOf(0, 35, 1), 0).size(), static_cast<size_t>(least[35]));

    std::set<std::string> kinds, types;
    for (const std::string& r : ReadAll(FileOf(0, 21, 3), 0))
        kinds.insert(RecordView(21, r).Raw("Header"));
    for (const std::string& r : ReadAll(FileOf(1, 22, 3), 0))
        types.insert(RecordView(22, r).Text("SongId").substr(0, 3));
    for (const char* kind : {"CATEG", "THEME", "HORLO", "VOIX ", "SONOR", "GROUP"})
        EXPECT_EQ(kinds.count(kind), 1u) << kind;
    for (const char* type : {"000", "JIN", "LIN", "RUB", "INF"})
        EXPECT_EQ(types.count(type), 1u) << type;

    int sites = 0;
    for (const std::string& r : ReadAll(FileOf(0, 29, 2), 0))
        sites += RecordView(29, r).Text("Header") == "SITES";
    EXPECT_GE(sites, 1);
}

TEST_F(DemoSiteTest, HistoryKeysLeadWithDatesUpToTodayAndTheScheduleGoesAWeekAhead) {
    ASSERT_TRUE(site->ok) << site->error;
    const std::string today = DateKey(kToday);
    const std::string first = DateKey(AddDays(kToday, -kSmallHistory));
    const std::string ahead = DateKey(AddDays(kToday, kDemoDaysAhead));
    for (int base = 0; base < kDemoBases; ++base) {
        for (int n = 0; n < kCatalogueSize; ++n) {
            if (!IsHistoryFile(n)) continue;
            for (int s = 1; s <= kDemoStations; ++s) {
                std::set<std::string> dates;
                int undated = 0;
                engine::EngineFile file;
                ASSERT_EQ(file.Open(FileOf(base, n, s), btr::kOpenReadOnly), btr::kSuccess);
                std::string record(CatalogueEntryFor(n).recordLength, '\0'), key(255, '\0');
                const int8_t k = static_cast<int8_t>(HistoryKeyNumber(n));
                for (int16_t st = file.Call(btr::kGetFirst, record, key, k); st == 0;
                     st = file.Call(btr::kGetNext, record, key, k)) {
                    std::string date = key.substr(0, 8);
                    ASSERT_TRUE(IsDate(date)) << "file " << n << ": " << key.substr(0, 20);
                    if (date.rfind("1900", 0) == 0) {
                        ++undated;
                    } else {
                        dates.insert(date);
                    }
                }
                ASSERT_FALSE(dates.empty()) << "file " << n;
                EXPECT_EQ(*dates.begin(), first) << "file " << n;
                // What was broadcast ends today; what is programmed goes on a week.
                const bool programmed = n == 7 || n == 10 || n == 17 || n == 27 || n == 35;
                EXPECT_EQ(*dates.rbegin(), programmed ? ahead : today) << "file " << n;
                EXPECT_EQ(undated > 0, n == 7) << "file " << n;
            }
        }
    }
    // The broadcast gaps, one record a day, end today too.
    std::vector<std::string> gaps = ReadAll(FileOf(0, 49, 1), 0);
    ASSERT_EQ(gaps.size(), static_cast<size_t>(kSmallHistory + 1));
    EXPECT_EQ(RecordView(49, gaps.back()).Text("Date"), today);
}

TEST_F(DemoSiteTest, ScheduleAndEquivalencesNameSongsOfTheirStation) {
    ASSERT_TRUE(site->ok) << site->error;
    for (int s = 1; s <= kDemoStations; ++s) {
        const std::set<std::string> songs = SongCodes(0, s);
        int music = 0, breaks = 0;
        for (const std::string& r : ReadAll(FileOf(0, 35, s), 0)) {
            RecordView event(35, r);
            if (event.Text("EventKind") != "Son") continue;
            if (event.Text("EventSubKind") == "Bre") {
                ++breaks;
                EXPECT_EQ(std::set<std::string>({"JIN", "LIN", "RUB", "INF"})
                              .count(event.Text("SongCode")),
                          1u);
                EXPECT_EQ(songs.count(event.Text("SecondCode")), 1u) << event.Text("SecondCode");
            } else {
                ++music;
                EXPECT_EQ(songs.count(event.Text("SongCode")), 1u) << event.Text("SongCode");
            }
        }
        EXPECT_GT(music, 0);
        EXPECT_GT(breaks, 0);
    }
    // Slot k of a row holds a song of station k + 1, or a category.
    std::vector<std::string> rows = ReadAll(FileOf(0, 46, 1), 0);
    ASSERT_GE(rows.size(), 2u);
    int categories = 0;
    for (const std::string& r : rows) {
        RecordView row(46, r);
        for (int slot = 0; slot < kDemoStations; ++slot) {
            std::string song = TrimRight(row.Part("SongId", 1, slot));
            if (!song.empty()) {
                EXPECT_EQ(SongCodes(0, slot + 1).count(song), 1u) << song;
            }
            categories += !TrimRight(row.Part("SongId", 0, slot)).empty();
        }
    }
    EXPECT_GE(categories, 1);
}

TEST_F(DemoSiteTest, TheSameArgumentsMakeTheSameBytes) {
    ASSERT_TRUE(site->ok) << site->error;
    TempDir other;
    DemoSiteResult again = CreateDemoSite(other.folder(), DemoSize::Small, -1, kToday);
    ASSERT_TRUE(again.ok) << again.error;
    EXPECT_EQ(again.TotalRecords(), site->TotalRecords());
    for (const std::string& name :
         {std::string("C/KV_Data/Base1/FRADB35.bt6"), std::string("C/KV_Data/Base2/FRAD003.bt6"),
          std::string("Settings/KV3_Config.ini"),
          std::string("C/KV_Config/Base1/KV3_Systeme.ini")}) {
        EXPECT_EQ(ReadFile(other.path() / name), ReadFile(dir->path() / "site" / name)) << name;
    }
    // Another day moves the dates.
    TempDir later;
    ASSERT_TRUE(CreateDemoSite(later.folder(), DemoSize::Small, 3, AddDays(kToday, 1)).ok);
    std::vector<std::string> events = ReadAll(later.folder() + "C/KV_Data/Base1/FRADA35.bt6", 0);
    EXPECT_EQ(RecordView(35, events.front()).Text("Date"), DateKey(AddDays(kToday, -2)));
}

}  // namespace
}  // namespace toverin
