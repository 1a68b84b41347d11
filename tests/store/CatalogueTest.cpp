#include <gtest/gtest.h>

#include <array>
#include <set>

#include "store/Catalogue.h"

namespace toverin {
namespace {

TEST(CatalogueNames, PerStationLetterCommonDigitsAndEmptyEntries) {
    EXPECT_EQ(StationFileName(22, 3), "FRADC22.bt6");
    EXPECT_EQ(StationFileName(22, 1), "FRADA22.bt6");
    EXPECT_EQ(StationFileName(35, 10), "FRADJ35.bt6");
    EXPECT_EQ(StationFileName(3, 3), "FRAD003.bt6");
    EXPECT_EQ(StationFileName(46, 7), "FRAD046.bt6");
    EXPECT_EQ(StationFileName(0, 2), "FRAD000.bt6");
    for (int empty : {8, 36, 50}) {
        EXPECT_FALSE(CatalogueEntryFor(empty).Exists()) << empty;
        EXPECT_EQ(StationFileName(empty, 1), "") << empty;
        EXPECT_EQ(CatalogueEntryFor(empty).name, "        ") << empty;
    }
    EXPECT_FALSE(CatalogueEntryFor(51).Exists());
    EXPECT_FALSE(CatalogueEntryFor(-1).Exists());

    EXPECT_TRUE(IsCommonFileName("FRAD003.bt6"));
    EXPECT_FALSE(IsCommonFileName("FRADC22.bt6"));
    EXPECT_FALSE(IsCommonFileName("FRAD"));
}

TEST(CatalogueEntries, NamesMarksAndDescriptionsFollowTheNumbers) {
    std::set<int> perStation;
    for (int f = 0; f < kCatalogueSize; ++f) {
        const CatalogueEntry& e = CatalogueEntryFor(f);
        EXPECT_EQ(e.number, f);
        if (!e.Exists()) continue;
        ASSERT_EQ(e.name.size(), 8u) << f;
        EXPECT_EQ(e.name.substr(0, 4), "FRAD") << f;
        EXPECT_EQ(std::stoi(e.name.substr(4, 3)), f) << f;
        EXPECT_TRUE(e.perStation == 'O' || e.perStation == 'N') << f;
        EXPECT_EQ(e.secondMark, f == 47 ? 'O' : 'N') << f;
        EXPECT_FALSE(e.description.empty()) << f;
        // The name of a per-station file must never look common, and the reverse.
        EXPECT_EQ(IsCommonFileName(StationFileName(f, 4)), e.perStation == 'N') << f;
        if (e.perStation == 'O') perStation.insert(f);
    }
    EXPECT_EQ(perStation, std::set<int>({5,  6,  7,  10, 17, 18, 20, 21, 22, 23, 24, 25, 26, 27, 28,
                                         29, 30, 31, 32, 33, 34, 35, 40, 43, 44, 45, 47, 48, 49}));
    EXPECT_EQ(FileDescription(21), "Voix, Groupe, Sonorité, Catégorie, ...");
    EXPECT_EQ(FileDescription(47), "V 3.4 Historique de Diffusion: Codes et Libellés");
    EXPECT_EQ(FileListLine(22), "22 Morceaux");
    EXPECT_EQ(FileListLine(5).substr(3), "Entêtes des contrats");
    EXPECT_EQ(FileListLine(0), "00 Paramétrage");
}

TEST(CatalogueKeys, EveryKeyCountMatchesItsSegmentsAndStaysInsideTheRecord) {
    for (int f = 0; f < kCatalogueSize; ++f) {
        const CatalogueEntry& e = CatalogueEntryFor(f);
        if (!e.Exists()) continue;
        auto keys = KeysOf(f);
        EXPECT_EQ(keys.size(), e.keyCount) << f;
        EXPECT_LE(e.segments.size(), 9u) << f;  // the creation record holds nine segments
        EXPECT_FALSE(e.segments.back().Continues()) << f;
        for (const KeySegment& s : e.segments) {
            EXPECT_GE(s.position, 1) << f;
            EXPECT_GT(s.length, 0) << f;
            EXPECT_LE(s.position + s.length - 1u, e.recordLength) << f;
            EXPECT_TRUE(std::set<int>({2, 3, 19, 1027, 1043}).count(s.flags)) << f;
        }
    }
    EXPECT_EQ(KeyLength(21, 1), 15);
    EXPECT_EQ(KeyLength(35, 0), 19);
    EXPECT_EQ(KeyLength(35, 2), 16);
    EXPECT_EQ(KeyLength(35, 3), 0);
    EXPECT_EQ(KeysOf(20)[3].size(), 2u);
}

TEST(CatalogueCreation, RecordOf47AndOfASegmentedFile) {
    btr::PbTBtrFileBuf creation = CreationRecord(47);
    EXPECT_EQ(creation.RecLen, 4082);
    EXPECT_EQ(creation.PageSize, 4096);
    EXPECT_EQ(creation.IndxCnt, 1);
    EXPECT_EQ(creation.RecordCount, 0u);
    EXPECT_EQ(creation.Keys[0].position, 1);
    EXPECT_EQ(creation.Keys[0].length, 11);
    EXPECT_EQ(creation.Keys[0].flags, btr::kKeyModifiable);  // unique
    EXPECT_EQ(creation.Keys[1].length, 0);

    creation = CreationRecord(35);
    EXPECT_EQ(creation.RecLen, 400);
    EXPECT_EQ(creation.IndxCnt, 3);
    EXPECT_EQ(creation.Keys[2].position, 1);
    EXPECT_EQ(creation.Keys[2].flags, 19);
    EXPECT_EQ(creation.Keys[3].position, 14);
    EXPECT_EQ(creation.Keys[3].length, 6);
}

TEST(CatalogueHistory, TheBackupTableAndDateLedKeys) {
    const std::vector<std::array<int, 3>> table = {{7, 13, 5},     {10, 14, 6},    {17, 14, 6},
                                                   {18, 14, 6},    {27, 100, 100}, {28, 16, 8},
                                                   {33, 100, 100}, {34, 100, 100}, {35, 100, 100}};
    int count = 0;
    for (int f = 0; f < kCatalogueSize; ++f) count += IsHistoryFile(f);
    EXPECT_EQ(count, 9);
    for (auto [f, length, filler] : table) {
        EXPECT_TRUE(IsHistoryFile(f)) << f;
        EXPECT_EQ(HistoryKeyLength(f), length) << f;
        EXPECT_EQ(HistoryFiller(f), filler) << f;
        int key = HistoryKeyNumber(f);
        ASSERT_GE(key, 0) << f;
        ASSERT_LT(key, static_cast<int>(KeysOf(f).size())) << f;
        // The key must be long enough to hold the date and, where the table's length is the
        // real one, be exactly that long.
        EXPECT_GE(KeyLength(f, key), 8) << f;
        if (length < 100) {
            EXPECT_EQ(KeyLength(f, key), length) << f;
        }
    }
    EXPECT_FALSE(IsHistoryFile(22));
    EXPECT_EQ(HistoryKeyLength(22), 0);
    EXPECT_EQ(HistoryKeyNumber(22), -1);
}

}  // namespace
}  // namespace toverin
