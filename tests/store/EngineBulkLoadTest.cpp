// Bulk loads into empty files: the rows are written alone and each index is built when first
// needed. Such a file must read, refuse duplicates and count exactly like one written normally.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using engine::EngineFile;
using testing::IndexNames;
using testing::NumberOf;
using testing::Padded;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::SongNumber;
using testing::TempDir;

std::string IntegrityCheck(const std::string& path) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw, "PRAGMA integrity_check", -1, &stmt, nullptr);
    std::string result;
    while (sqlite3_step(stmt) == SQLITE_ROW)
        result += reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return result;
}

// Song n of a load in number order: titles repeat, in several cases, and so do station + date.
std::string LoadSong(int n) {
    static const char* titles[] = {"Soleil", "nuit", "SOLEIL", "Amour", "soleil", "Zebre", "amour"};
    return Song(n * 3, titles[n * 5 % 7], n % 2 ? "01" : "02",
                "2026010" + std::to_string(n % 4 + 1), "#" + std::to_string(n));
}

// Every record met walking the whole of `key` one way, records in full.
std::vector<std::string> WalkAll(SongFile& f, int8_t key, bool forward) {
    std::vector<std::string> records;
    int16_t status = f.Get(forward ? btr::kGetFirst : btr::kGetLast, key);
    while (status == btr::kSuccess) {
        records.push_back(f.record);
        status = f.Get(forward ? btr::kGetNext : btr::kGetPrevious, key);
    }
    EXPECT_EQ(status, btr::kEndOfFile);
    return records;
}

std::vector<std::string> WalkFrom(SongFile& f, uint16_t start, uint16_t next, int8_t key,
                                  const std::string& search) {
    std::vector<std::string> records;
    int16_t status = f.Get(start, key, search);
    while (status == btr::kSuccess) {
        records.push_back(f.record);
        status = f.Get(next, key);
    }
    return records;
}

TEST(EngineBulkLoad, ABulkLoadedFileReadsLikeANormallyWrittenOne) {
    TempDir dir;
    std::string normal = dir.file("normal.bt6"), bulk = dir.file("bulk.bt6");
    constexpr int kSongs = 150;
    for (const std::string& path : {normal, bulk}) {
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        SongFile f;
        ASSERT_EQ(f.Open(path, path == bulk ? btr::kOpenAccelerated : btr::kOpenNormal),
                  btr::kSuccess);
        for (int n = 1; n <= kSongs; ++n) ASSERT_EQ(f.Insert(LoadSong(n)), btr::kSuccess);
    }
    EXPECT_EQ(IndexNames(normal), "records_k0 records_k1 records_k2");
    EXPECT_EQ(IndexNames(bulk), "") << "the load put every index off";
    EXPECT_EQ(IntegrityCheck(bulk), "ok");

    SongFile a, b;
    ASSERT_EQ(a.Open(normal, btr::kOpenReadOnly), btr::kSuccess);
    ASSERT_EQ(b.Open(bulk, btr::kOpenReadOnly), btr::kSuccess);
    btr::PbTBtrFileBuf statA{}, statB{};
    ASSERT_EQ(a.file.Stat(statA), btr::kSuccess);
    ASSERT_EQ(b.file.Stat(statB), btr::kSuccess);
    EXPECT_EQ(uint32_t{statB.RecordCount}, static_cast<uint32_t>(kSongs));
    EXPECT_EQ(std::memcmp(&statA, &statB, sizeof statA), 0);

    for (int8_t key : {0, 1, 2}) {
        SCOPED_TRACE(::testing::Message() << "key " << int(key));
        std::vector<std::string> forward = WalkAll(a, key, true);
        ASSERT_EQ(forward.size(), static_cast<size_t>(kSongs));
        EXPECT_EQ(WalkAll(b, key, true), forward);
        EXPECT_EQ(WalkAll(b, key, false), WalkAll(a, key, false));
    }
    // Duplicates keep the order of the load, from the middle of a group both ways.
    std::string soleil = Padded("SOLEIL", 20);
    std::vector<std::string> group = WalkFrom(a, btr::kGetEqual, btr::kGetNext, 1, soleil);
    ASSERT_GT(group.size(), 40u);
    EXPECT_EQ(WalkFrom(b, btr::kGetEqual, btr::kGetNext, 1, soleil), group);
    EXPECT_EQ(WalkFrom(b, btr::kGetLessOrEqual, btr::kGetPrevious, 1, soleil),
              WalkFrom(a, btr::kGetLessOrEqual, btr::kGetPrevious, 1, soleil));
    EXPECT_EQ(WalkFrom(b, btr::kGetGreaterOrEqual, btr::kGetNext, 2, "012026010"),
              WalkFrom(a, btr::kGetGreaterOrEqual, btr::kGetNext, 2, "012026010"));
    EXPECT_EQ(IndexNames(bulk), "") << "a read-only open builds nothing";

    // Opened to be written, the first read by each key builds its index.
    SongFile c;
    ASSERT_EQ(c.Open(bulk), btr::kSuccess);
    for (int8_t key : {0, 1, 2}) {
        EXPECT_EQ(WalkAll(c, key, false), WalkAll(a, key, false));
    }
    EXPECT_EQ(IndexNames(bulk), "records_k0 records_k1 records_k2") << "built by the first reads";
    EXPECT_EQ(IntegrityCheck(bulk), "ok");
}

TEST(EngineBulkLoad, EveryOperationSeesTheRowsJustLoaded) {
    TempDir dir;
    std::string path = dir.file("FRADB22.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    SongFile bulk, reader;
    ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
    ASSERT_EQ(reader.Open(path, btr::kOpenReadOnly), btr::kSuccess);
    // Rows are handed to SQLite in groups; every count here ends inside a group.
    int n = 0;
    for (int count : {1, 45, 70}) {
        SCOPED_TRACE(count);
        while (n < count) ASSERT_EQ(bulk.Insert(LoadSong(++n)), btr::kSuccess);
        btr::PbTBtrFileBuf stat{};
        ASSERT_EQ(bulk.file.Stat(stat), btr::kSuccess);
        EXPECT_EQ(uint32_t{stat.RecordCount}, static_cast<uint32_t>(n));
        ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(reader.record, LoadSong(n));
    }
    // The record just inserted can be read on from, rewritten and deleted at once.
    ASSERT_EQ(bulk.Insert(LoadSong(71)), btr::kSuccess);
    ASSERT_EQ(bulk.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(bulk.record, LoadSong(70));
    ASSERT_EQ(bulk.Insert(LoadSong(72)), btr::kSuccess);
    ASSERT_EQ(bulk.Update(Song(72 * 3, "Rewritten")), btr::kSuccess);
    ASSERT_EQ(bulk.Insert(LoadSong(73)), btr::kSuccess);
    ASSERT_EQ(bulk.Delete(), btr::kSuccess);
    ASSERT_EQ(bulk.Insert(LoadSong(74)), btr::kSuccess);
    ASSERT_EQ(bulk.Insert(LoadSong(75)), btr::kSuccess);
    ASSERT_EQ(bulk.file.Close(), btr::kSuccess);

    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    std::vector<std::string> expected;
    for (int i = 1; i <= 75; ++i) {
        if (i == 72)
            expected.push_back(Song(72 * 3, "Rewritten"));
        else if (i != 73)
            expected.push_back(LoadSong(i));
    }
    EXPECT_EQ(WalkAll(f, 0, true), expected);
    ASSERT_EQ(f.Get(btr::kGetEqual, 1, Padded("REWRITTEN", 20)), btr::kSuccess);
    EXPECT_EQ(f.number(), 72 * 3);
    EXPECT_EQ(IntegrityCheck(path), "ok");
}

// Number and title both unique; the title modifiable and case-insensitive.
btr::PbTBtrFileBuf UniqueTitles() {
    return testing::MakeFileBuf(testing::kSongLength, 2, {{1, 6, 0}, {7, 20, 1026}});
}

TEST(EngineBulkLoad, UniqueKeysRefuseDuplicatesWhileTheirIndexesWait) {
    TempDir dir;
    std::string path = dir.file("FRAD030.bt6");
    ASSERT_EQ(EngineFile::Create(path, UniqueTitles()), btr::kSuccess);
    {
        SongFile f;
        ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 10; n <= 50; n += 10)
            ASSERT_EQ(f.Insert(Song(n, "T" + SongNumber(n))), btr::kSuccess);
    }
    ASSERT_EQ(IndexNames(path), "");
    // Later loads go on in order and leave the indexes waiting, until a value comes that is not
    // above the newest row's: then that key's index is built, and refuses what it must.
    {
        SongFile f;
        ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        ASSERT_EQ(f.Insert(Song(60, "T" + SongNumber(60))), btr::kSuccess);
        EXPECT_EQ(f.Insert(Song(60, "U")), btr::kDuplicateKey) << "the newest number again";
    }
    EXPECT_EQ(IndexNames(path), "records_k0");
    {
        SongFile f;
        ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        EXPECT_EQ(f.Insert(Song(70, "t" + SongNumber(60))), btr::kDuplicateKey)
            << "the newest title, in other case";
        ASSERT_EQ(f.Insert(Song(5, "A")), btr::kSuccess) << "out of order but new";
    }
    EXPECT_EQ(IndexNames(path), "records_k0 records_k1");

    // A value further back than the newest, and an update that changes a waiting unique key.
    std::string other = dir.file("FRAD031.bt6");
    ASSERT_EQ(EngineFile::Create(other, UniqueTitles()), btr::kSuccess);
    {
        SongFile f;
        ASSERT_EQ(f.Open(other, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 1; n <= 5; ++n)
            ASSERT_EQ(f.Insert(Song(n, "T" + SongNumber(n))), btr::kSuccess);
        EXPECT_EQ(f.Insert(Song(3, "Z")), btr::kDuplicateKey);
    }
    EXPECT_EQ(IndexNames(other), "records_k0");
    SongFile f;
    ASSERT_EQ(f.Open(other, btr::kOpenAccelerated), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(5)), btr::kSuccess);
    EXPECT_EQ(f.Update(Song(5, "t" + SongNumber(2))), btr::kDuplicateKey);
    ASSERT_EQ(f.Update(Song(5, "A")), btr::kSuccess) << "now first in title order";
    EXPECT_EQ(f.Insert(Song(7, "a")), btr::kDuplicateKey);
    ASSERT_EQ(f.Get(btr::kGetFirst, 1), btr::kSuccess);
    EXPECT_EQ(f.number(), 5);
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(f.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 5u);
    f.file.Close();
    EXPECT_EQ(IndexNames(other), "records_k0 records_k1");
}

// A copy read newest first gives its unique key in falling order: the index waits as for a
// rising load, and the first value that does not fall below the newest builds it. Once it is
// built, rows below the lowest value are still grouped. Values inside the range, and at either
// end of it, must be refused, within a batch and after it.
TEST(EngineBulkLoad, AFallingLoadStillRefusesEveryDuplicate) {
    TempDir dir;
    std::string path = dir.file("FRAD003.btr");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    {
        SongFile f;
        ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 200; n >= 101; --n) ASSERT_EQ(f.Insert(LoadSong(n)), btr::kSuccess) << n;
        EXPECT_EQ(IndexNames(path), "") << "falling values wait like rising ones";
        EXPECT_EQ(f.Insert(LoadSong(101)), btr::kDuplicateKey) << "the newest again";
        EXPECT_EQ(IndexNames(path), "");
        EXPECT_EQ(f.Insert(LoadSong(150)), btr::kDuplicateKey) << "inside the range";
        EXPECT_EQ(f.Insert(LoadSong(101)), btr::kDuplicateKey) << "the lowest";
        EXPECT_EQ(f.Insert(LoadSong(200)), btr::kDuplicateKey) << "the highest";
        ASSERT_EQ(f.Insert(LoadSong(100)), btr::kSuccess) << "below the lowest";
        EXPECT_EQ(f.Insert(LoadSong(100)), btr::kDuplicateKey) << "the new lowest, just grouped";
        ASSERT_EQ(f.Insert(LoadSong(201)), btr::kSuccess) << "above the highest";
        EXPECT_EQ(f.Insert(LoadSong(201)), btr::kDuplicateKey) << "the new highest";
        for (int n = 99; n >= 1; --n) ASSERT_EQ(f.Insert(LoadSong(n)), btr::kSuccess) << n;
        EXPECT_EQ(f.Insert(LoadSong(7)), btr::kDuplicateKey) << "inside the range again";
    }
    EXPECT_EQ(IntegrityCheck(path), "ok");
    SongFile f;
    ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
    std::vector<std::string> records = WalkAll(f, 0, true);
    ASSERT_EQ(records.size(), 201u);
    for (size_t i = 1; i < records.size(); ++i)
        EXPECT_LT(NumberOf(records[i - 1]), NumberOf(records[i])) << i;
    EXPECT_EQ(f.Insert(LoadSong(1)), btr::kDuplicateKey) << "after reopening";
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(f.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 201u);
}

// An update that moves a unique value out of the range read from its index must not let that
// value be inserted again.
TEST(EngineBulkLoad, AnUpdatedValueOutsideTheRangeIsStillRefused) {
    TempDir dir;
    std::string path = dir.file("FRAD030.bt6");
    ASSERT_EQ(EngineFile::Create(path, UniqueTitles()), btr::kSuccess);
    SongFile f;
    ASSERT_EQ(f.Open(path, btr::kOpenAccelerated), btr::kSuccess);
    for (int n = 1; n <= 50; ++n)
        ASSERT_EQ(f.Insert(Song(n, "T" + SongNumber(100 - n))), btr::kSuccess) << n;
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(20)), btr::kSuccess);
    ASSERT_EQ(f.Update(Song(20, "T" + SongNumber(999))), btr::kSuccess);
    EXPECT_EQ(f.Insert(Song(51, "t" + SongNumber(999))), btr::kDuplicateKey) << "moved above";
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(30)), btr::kSuccess);
    ASSERT_EQ(f.Update(Song(30, "A")), btr::kSuccess);
    EXPECT_EQ(f.Insert(Song(52, "a")), btr::kDuplicateKey) << "moved below";
    ASSERT_EQ(f.Insert(Song(53, "0")), btr::kSuccess) << "below everything";
    EXPECT_EQ(f.Insert(Song(54, "0")), btr::kDuplicateKey);
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(f.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 51u);
}

TEST(EngineBulkLoad, ANormalWriteBuildsEveryWaitingIndexFirst) {
    TempDir dir;
    std::string path = dir.file("FRAD003.btr");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    {
        SongFile bulk;
        ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 1; n <= 100; ++n) ASSERT_EQ(bulk.Insert(LoadSong(n)), btr::kSuccess);
    }
    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(30)), btr::kSuccess);
    EXPECT_EQ(IndexNames(path), "records_k0") << "a read builds only the index it needs";
    EXPECT_EQ(f.Insert(LoadSong(10)), btr::kDuplicateKey);
    EXPECT_EQ(IndexNames(path), "records_k0 records_k1 records_k2");
    ASSERT_EQ(f.Insert(Song(1, "Normal")), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 1);
    EXPECT_EQ(IntegrityCheck(path), "ok");
}

// What searches on key 0 find, and the record one step on from each, as "status number" lines.
std::vector<std::string> Searches(SongFile& f) {
    std::vector<std::string> found;
    for (uint16_t operation : {btr::kGetEqual, btr::kGetGreater, btr::kGetGreaterOrEqual,
                               btr::kGetLessThan, btr::kGetLessOrEqual}) {
        bool forward = operation != btr::kGetLessThan && operation != btr::kGetLessOrEqual;
        for (int n : {0, 1, 3, 4, 150, 299, 300, 301}) {
            std::string line = std::to_string(operation) + " " + std::to_string(n) + ":";
            int16_t status = f.Get(operation, 0, SongNumber(n));
            line += " " + std::to_string(status);
            if (status == btr::kSuccess) {
                line += " " + std::to_string(f.number());
                status = f.Get(forward ? btr::kGetNext : btr::kGetPrevious, 0);
                line += " then " + std::to_string(status);
                if (status == btr::kSuccess) line += " " + std::to_string(f.number());
            }
            found.push_back(line);
        }
    }
    return found;
}

// Key 0 of `copy` loaded from `path` read by key 0, forward or backward.
void CopyInKeyOrder(const std::string& path, const std::string& copy, bool forward) {
    ASSERT_EQ(EngineFile::Create(copy, SongFileBuf()), btr::kSuccess);
    SongFile from, to;
    ASSERT_EQ(from.Open(path, btr::kOpenReadOnly), btr::kSuccess);
    ASSERT_EQ(to.Open(copy, btr::kOpenAccelerated), btr::kSuccess);
    int16_t status = from.Get(forward ? btr::kGetFirst : btr::kGetLast, 0);
    while (status == btr::kSuccess) {
        ASSERT_EQ(to.Insert(from.record), btr::kSuccess);
        status = from.Get(forward ? btr::kGetNext : btr::kGetPrevious, 0);
    }
}

TEST(EngineBulkLoad, ReadsGoOnWithoutAnIndexThatCannotBeBuiltYet) {
    TempDir dir;
    std::string path = dir.file("FRADB22.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    std::vector<std::string> expected;
    {
        SongFile bulk;
        ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 1; n <= 100; ++n) ASSERT_EQ(bulk.Insert(LoadSong(n)), btr::kSuccess);
        expected = WalkAll(bulk, 1, true);  // builds key 1's index inside the load
    }
    ASSERT_EQ(IndexNames(path), "records_k1");
    // Copied in rising key order and in falling key order (as history is backed up).
    for (bool rising : {true, false}) {
        SCOPED_TRACE(rising ? "rising load" : "falling load");
        std::string copy = dir.file(rising ? "rising.bt6" : "falling.bt6");
        CopyInKeyOrder(path, copy, rising);
        // Another process writing holds the lock an index build needs.
        sqlite3* other = nullptr;
        ASSERT_EQ(sqlite3_open(copy.c_str(), &other), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        {
            SongFile f, indexed;
            ASSERT_EQ(f.Open(copy), btr::kSuccess);
            ASSERT_EQ(indexed.Open(path, btr::kOpenReadOnly), btr::kSuccess);
            if (rising) {
                EXPECT_EQ(WalkAll(f, 1, true), expected);
            }
            // Key 0 is read in row order, which the load kept equal to key order or its reverse.
            EXPECT_EQ(WalkAll(f, 0, true), WalkAll(indexed, 0, true));
            EXPECT_EQ(WalkAll(f, 0, false), WalkAll(indexed, 0, false));
            EXPECT_EQ(Searches(f), Searches(indexed));
            EXPECT_EQ(IndexNames(copy), "");
            EXPECT_EQ(f.Insert(Song(999, "Late")), btr::kRecordLocked);
        }
        sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(other);
        SongFile f;
        ASSERT_EQ(f.Open(copy), btr::kSuccess);
        if (rising) {
            EXPECT_EQ(WalkAll(f, 1, true), expected);
        }
        EXPECT_EQ(WalkAll(f, 0, false).front(), LoadSong(100));
        EXPECT_EQ(IndexNames(copy), rising ? "records_k0 records_k1" : "records_k0");
    }
}

}  // namespace
}  // namespace toverin
