// The equivalence table on the demo site's record files: loading the cells' texts, saving
// and loading again, the matching rule the duplication uses, and the tree's drops and the cell
// menu's questions.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/Site.h"
#include "app/Text.h"
#include "content/EquivalenceCatalogue.h"
#include "content/EquivalenceTable.h"
#include "store/Pervasive.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/Btrieve.h"
#include "tests/operations/SiteFixture.h"
#include "tools/DemoSite.h"
#include "tools/EquivalenceSite.h"

namespace toverin {
namespace {

class DemoEquivalence : public testing::SiteFixture {
  protected:
    void SetUp() override {
        DemoSiteResult demo = CreateDemoSite(dir.folder(), DemoSize::Small, 2, AppClock().Now());
        ASSERT_TRUE(demo.ok) << demo.error;
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
        DetermineFichierConfig();
        ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    }
    // The record of `key` in file `f` of `station`, or "" when there is none.
    std::string Read(int f, int station, const std::string& key) {
        SlotBank reader("test");
        EXPECT_TRUE(reader.FichierPervasiveOuvrir(0, station, station, f));
        std::string data, k = key;
        reader.BTRieve(0, btr::kGetEqual, data, k, 0, f, station, "test");
        return reader.LastStatus() == btr::kSuccess ? data : "";
    }
    void Delete(int f, int station, const std::string& key) {
        SlotBank writer("test");
        ASSERT_TRUE(writer.FichierPervasiveOuvrir(0, station, station, f));
        std::string data, k = key;
        writer.BTRieve(0, btr::kGetEqual, data, k, 0, f, station, "test");
        ASSERT_EQ(writer.LastStatus(), 0) << key;
        writer.BTRieve(0, btr::kDelete, data, k, 0, f, station, "test");
        ASSERT_EQ(writer.LastStatus(), 0) << key;
    }
    std::string SongText(int station, const std::string& code) {
        std::string data = Read(22, station, code);
        if (data.empty()) return "<missing>";
        RecordView song(22, data);
        return Trim(song.Utf8("Title")) + " - " + Trim(song.Utf8("SecondText"));
    }
    std::vector<std::string> File46() { return ReadAll(DataFilePath(0, 46, 1)); }
    std::vector<std::string> Codes(const EquivalenceTable::Row& row) {
        std::vector<std::string> codes;
        for (const auto& cell : row.cells) codes.push_back(cell.code);
        return codes;
    }

    SlotBank bank{"Equivalence"};
};

TEST_F(DemoEquivalence, LoadShowsStationOnesTextsThenTheColumnsOwnAndKeepsTheCodesOfGoneEntries) {
    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    EXPECT_TRUE(table.complete());
    EXPECT_FALSE(table.modified());
    ASSERT_EQ(table.rows().size(), 6u);
    for (int r = 1; r <= 5; ++r) {
        const auto& row = table.rows()[static_cast<size_t>(r) - 1];
        EXPECT_EQ(row.number, r);
        for (int s = 1; s <= 3; ++s) {
            const std::string code = "0009" + std::to_string(s) + ZeroPad(r, 3);
            EXPECT_EQ(table.CellAt(r, s).code, code);
            // Station 1 does not hold the other stations' songs: each is read from its own
            // column's station.
            EXPECT_EQ(table.CellAt(r, s).shown, SongText(s, code)) << r << " " << s;
        }
    }
    EXPECT_EQ(table.CellAt(6, 1).code, "00000001");
    EXPECT_EQ(table.CellAt(6, 2).code, "00000002");
    EXPECT_EQ(table.CellAt(6, 3).code, "CATEGHITS ");
    EXPECT_EQ(table.CellAt(6, 3).shown, "Catégorie: Hits actuels");
    EXPECT_FALSE(bank.IsFileOpen(0, 46, 1)) << "the files are held only while loading";
    EXPECT_FALSE(bank.IsFileOpen(0, 22, 2));

    // Station 1 holds the table: a code it knows is shown with its text, whatever the column.
    {
        std::string song = Read(22, 1, "00091004");
        ASSERT_FALSE(song.empty());
        RecordView(22, song).SetText("SongId", "00092004");
        SlotBank writer("test");
        ASSERT_TRUE(writer.FichierPervasiveOuvrir(0, 1, 1, 22));
        std::string key;
        writer.BTRieve(0, btr::kInsert, song, key, 0, 22, 1, "test");
        ASSERT_EQ(writer.LastStatus(), 0);
    }
    // A song and a category deleted meanwhile: their cells keep their codes, show nothing, and
    // are saved as they were.
    Delete(22, 2, "00092003");
    Delete(21, 1, "CATEGHITS ");
    Delete(21, 3, "CATEGHITS ");
    const std::vector<std::string> before = File46();
    ASSERT_TRUE(table.Load(bank, 0));
    EXPECT_EQ(table.CellAt(4, 2).shown, SongText(1, "00091004"));
    EXPECT_NE(table.CellAt(4, 2).shown, SongText(2, "00092004"));
    EXPECT_EQ(table.CellAt(3, 2).code, "00092003");
    EXPECT_EQ(table.CellAt(3, 2).shown, "");
    EXPECT_EQ(table.CellAt(6, 3).code, "CATEGHITS ");
    EXPECT_EQ(table.CellAt(6, 3).shown, "");
    EXPECT_EQ(table.CellAt(3, 1).shown, SongText(1, "00091003"));
    ASSERT_TRUE(table.Save(bank, 0));
    EXPECT_EQ(File46(), before);
    EXPECT_TRUE(dialogs.messages.empty());
}

TEST_F(DemoEquivalence, SaveWritesOneRecordPerNonEmptyRowAndLoadGivesTheSameTableBack) {
    // A record of blank slots, as another program may leave one: it shows nothing and goes.
    {
        SlotBank writer("test");
        ASSERT_TRUE(writer.FichierPervasiveOuvrir(0, 1, 1, 46));
        std::string blank = BlankRecord(46), key;
        ASSERT_TRUE(RecordView(46, blank).SetNumber("NoLig", 40));
        writer.BTRieve(0, btr::kInsert, blank, key, 0, 46, 1, "test");
        ASSERT_EQ(writer.LastStatus(), 0);
    }
    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    EXPECT_EQ(table.FindRow(40), nullptr);
    ASSERT_EQ(File46().size(), 7u);

    table.ClearRow(3);                                      // a gap
    table.SetCell(10, 2, {"00000007", "Titre - Version"});  // a new row further down
    table.SetCell(8, 1, {"00000009", "x"});                 // a row emptied again
    table.ClearCell(8, 1);
    table.SetCell(12, 3, {"CATEGGOL80", "Catégorie: Gold 80"});  // a category alone
    table.rows().push_back({20, {{"   ", ""}, {}, {"", ""}}});   // blanks only
    EXPECT_TRUE(table.modified());
    ASSERT_TRUE(table.Save(bank, 0));
    EXPECT_FALSE(table.modified());

    std::vector<std::string> records = File46();
    std::vector<std::string> numbers;
    for (const auto& r : records) numbers.push_back(r.substr(0, 5));
    EXPECT_EQ(numbers, (std::vector<std::string>{"00001", "00002", "00004", "00005", "00006",
                                                 "00010", "00012"}));
    // The record's bytes: number, 26 slots of category and song code, "0000" and five "0".
    const std::string& row10 = records[5];
    ASSERT_EQ(row10.size(), 512u);
    EXPECT_EQ(row10.substr(5, 13), std::string(13, ' '));
    EXPECT_EQ(row10.substr(18, 13), "     00000007");
    EXPECT_EQ(row10.substr(31, 13 * 24), std::string(13 * 24, ' '));
    EXPECT_EQ(row10.substr(343, 9), "000000000");
    EXPECT_EQ(row10.substr(352), std::string(160, ' '));
    EXPECT_EQ(records[6].substr(31, 13), "GOL80        ");
    EXPECT_EQ(records[4].substr(31, 13), "HITS         ");

    EquivalenceTable again;
    ASSERT_TRUE(again.Load(bank, 0));
    ASSERT_EQ(again.rows().size(), 7u);
    for (const auto& row : again.rows()) {
        const auto* saved = table.FindRow(row.number);
        ASSERT_NE(saved, nullptr) << row.number;
        EXPECT_EQ(Codes(row), Codes(*saved)) << row.number;
    }
    EXPECT_EQ(again.CellAt(12, 3).shown, "Catégorie: Gold 80");
    EXPECT_EQ(again.CellAt(10, 2).shown, SongText(2, "00000007"));
    EXPECT_EQ(again.CellAt(4, 3).shown, table.CellAt(4, 3).shown);
}

TEST_F(DemoEquivalence, MatchTakesTheUpperRowAndItsTargetCellAsItIs) {
    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    EXPECT_EQ(table.Match(1, 2, "00091002"), "00092002");
    EXPECT_EQ(table.Match(2, 1, "00092002  "), "00091002") << "texts compared trimmed";
    EXPECT_EQ(table.Match(1, 3, "00000001"), "CATEGHITS ") << "a category stands for the song";
    EXPECT_EQ(table.Match(1, 2, "00000099"), std::nullopt) << "no row";
    EXPECT_EQ(table.Match(1, 2, ""), std::nullopt);

    // The same source song in two rows: the upper one decides, whatever the lower holds.
    table.SetCell(30, 1, {"00091002", ""});
    table.SetCell(30, 2, {"00000005", ""});
    EXPECT_EQ(table.Match(1, 2, "00091002"), "00092002");
    table.SetCell(2, 2, {"", ""});
    EXPECT_EQ(table.CellAt(2, 2).code, "");
    EXPECT_EQ(table.Match(1, 2, "00091002"), std::nullopt)
        << "an empty target cell in the upper row means no replacement";
    EXPECT_EQ(table.Match(1, 3, "00091002"), "00093002");
    // Empty cells never match, and a station past the row's cells has nothing.
    EXPECT_EQ(table.Match(2, 1, "   "), std::nullopt);
    EXPECT_EQ(table.Match(1, 9, "00091001"), std::nullopt);
}

TEST_F(DemoEquivalence, TheTreeDropsOnlyIntoItsOwnStationsColumn) {
    StationCatalogue tree = LoadStationCatalogue(bank, 0, 2);
    ASSERT_TRUE(tree.complete);
    ASSERT_EQ(tree.groups.size(), 5u);
    EXPECT_EQ(std::string(tree.groups[1].kind.kind), "Jin");
    EXPECT_EQ(tree.groups[1].songs.size(), 6u);
    for (const auto& group : tree.groups)
        for (const auto& song : group.songs)
            EXPECT_EQ(song.code.substr(0, 3), group.kind.type) << song.code;
    const CatalogueSong* own = tree.FindSong("00092004");
    ASSERT_NE(own, nullptr);
    ASSERT_EQ(tree.categories.size(), 8u);
    EXPECT_EQ(tree.FindCategory("HITS")->label, "HITS ACTUELS") << "station 2 writes its own";
    EXPECT_FALSE(bank.IsFileOpen(0, 22, 2));

    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    EXPECT_EQ(DropNodeOnCell(table, tree, SongNodeKey("00092004"), 7, 3), DropResult::WrongColumn);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Vous devez respecter les colonnes pour le Drag & Drop des titres");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_EQ(table.FindRow(7), nullptr);
    EXPECT_FALSE(table.modified());

    EXPECT_EQ(DropNodeOnCell(table, tree, SongNodeKey("00092004"), 7, 2), DropResult::Written);
    EXPECT_EQ(table.CellAt(7, 2).code, "00092004");
    EXPECT_EQ(table.CellAt(7, 2).shown, own->title + " - " + own->second);
    EXPECT_TRUE(table.modified());
    EXPECT_EQ(DropNodeOnCell(table, tree, CategoryNodeKey("HITS "), 1, 2), DropResult::Written);
    EXPECT_EQ(table.CellAt(1, 2).code, "CATEGHITS ");
    EXPECT_EQ(table.CellAt(1, 2).shown, "Catégorie: HITS ACTUELS");
    EXPECT_EQ(DropNodeOnCell(table, tree, "Mus", 9, 2), DropResult::Group);
    EXPECT_EQ(DropNodeOnCell(table, tree, "Pub00001", 9, 2), DropResult::Unknown);
    EXPECT_EQ(table.FindRow(9), nullptr);
    EXPECT_NE(Log().find("Key unknow: Pub00001"), std::string::npos);
    EXPECT_EQ(dialogs.messages.size(), 1u);
}

TEST_F(DemoEquivalence, TheCellMenuAsksBeforeEmptying) {
    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    const std::string shown = table.CellAt(2, 1).shown;
    dialogs.QueueAnswer(MsgAnswer::No);
    EXPECT_FALSE(MnuEquiViderCellule(table, 2, 1));
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text, "Voulez-vous vider la cellule '" + shown + "' ?");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Question);
    EXPECT_EQ(dialogs.messages[0].buttons, MsgButtons::YesNo);
    EXPECT_EQ(table.CellAt(2, 1).code, "00091002");
    EXPECT_FALSE(table.modified());

    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_TRUE(MnuEquiViderCellule(table, 2, 1));
    EXPECT_TRUE(table.CellAt(2, 1).empty());
    EXPECT_EQ(table.CellAt(2, 2).code, "00092002");

    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_TRUE(MnuEquiViderLigne(table, 6));
    EXPECT_EQ(dialogs.messages.back().text, "Voulez-vous vider la ligne 6");
    EXPECT_EQ(table.FindRow(6), nullptr);
    EXPECT_TRUE(table.modified());
    EXPECT_EQ(File46().size(), 6u) << "nothing is written before the save";
}

// A read that fails in the middle of the walk is reported, and the walk goes on past it.
int16_t g_failNextRead = 0;
int16_t FailingOnce(uint16_t op, void* pos, void* data, uint32_t* len, void* key, uint8_t keyLen,
                    int8_t keyNumber) {
    if (op == btr::kGetNext && g_failNextRead > 0 && --g_failNextRead == 0) return 2;
    return BTRCALL(op, pos, data, len, key, keyLen, keyNumber);
}

TEST_F(DemoEquivalence, AReadErrorIsReportedAndTheRestOfTheTableStillLoads) {
    SetRecordEngine(&FailingOnce);
    g_failNextRead = 3;
    EquivalenceTable table;
    bool loaded = table.Load(bank, 0);
    SetRecordEngine(nullptr);
    ASSERT_TRUE(loaded);
    EXPECT_FALSE(table.complete());
    EXPECT_EQ(table.rows().size(), 6u);
    ASSERT_FALSE(dialogs.messages.empty()) << "the layer reported the damaged read";
    EXPECT_NE(Log().find("read(s) of file 46 failed"), std::string::npos);
}

// A table of 5,000 rows for ten stations, each cell shown through its station's own files.
class LargeEquivalence : public testing::SiteFixture {};

TEST_F(LargeEquivalence, FiveThousandRowsForTenStationsLoadAndSaveWhole) {
    constexpr int kRows = 5000;
    EquivalenceSiteResult site = CreateEquivalenceSite(dir.folder(), 10, kRows);
    ASSERT_TRUE(site.ok) << site.error;
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    auto song = [](int station, int row) { return EquivalenceSiteSong(station, row, kRows); };

    SlotBank bank("Equivalence");
    EquivalenceTable table;
    ASSERT_TRUE(table.Load(bank, 0));
    ASSERT_TRUE(table.complete());
    ASSERT_EQ(table.rows().size(), static_cast<size_t>(kRows));
    EXPECT_EQ(table.rows().back().number, kRows);
    EXPECT_EQ(table.CellAt(1234, 9).code, song(9, 1234));
    EXPECT_EQ(table.CellAt(1234, 9).shown, "Titre 1234 é - Station 9");
    EXPECT_EQ(table.CellAt(4850, 10).shown, "Titre 4850 é - Station 10");
    EXPECT_EQ(table.CellAt(97, 7).code, "CATEGC7   ");
    EXPECT_EQ(table.CellAt(97, 7).shown, "Catégorie: Catégorie 7");
    EXPECT_EQ(table.CellAt(3000, 4).code, song(4, 3000)) << "a song gone keeps its code";
    EXPECT_EQ(table.CellAt(3000, 4).shown, "");
    EXPECT_EQ(table.Match(3, 8, song(3, 4999)), song(8, 4999));
    EXPECT_EQ(table.Match(1, 7, song(1, 194)), "CATEGC7   ");

    const std::vector<std::string> before = ReadAll(DataPath(46, 1));
    table.setModified(true);
    ASSERT_TRUE(table.Save(bank, 0));
    EXPECT_EQ(ReadAll(DataPath(46, 1)), before);
    EXPECT_TRUE(dialogs.messages.empty());
}

}  // namespace
}  // namespace toverin
