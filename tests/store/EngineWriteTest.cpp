// Writes: duplicate and non-modifiable keys, conflicts between position blocks, and accelerated
// (bulk) mode.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using engine::EngineFile;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::SongNumber;
using testing::TempDir;

class EngineWrite : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("FRAD003.btr");
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    }
    TempDir dir;
    std::string path;
};

TEST_F(EngineWrite, DuplicateAndNonModifiableKeysAreRefusedAndChangeNothing) {
    // Key 2 of this layout allows duplicates; make a file whose title key is unique instead.
    std::string unique = dir.file("unique.btr");
    ASSERT_EQ(EngineFile::Create(unique, testing::MakeFileBuf(testing::kSongLength, 2,
                                                              {{1, 6, 0}, {7, 20, 1026}})),
              btr::kSuccess);
    SongFile songs;
    ASSERT_EQ(songs.Open(unique), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(1, "One")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(2, "Two")), btr::kSuccess);
    EXPECT_EQ(songs.Insert(Song(1, "Other")), btr::kDuplicateKey);
    EXPECT_EQ(songs.Insert(Song(3, "ONE")), btr::kDuplicateKey) << "case-insensitive unique key";

    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(2)), btr::kSuccess);
    EXPECT_EQ(songs.Update(Song(2, "one")), btr::kDuplicateKey);
    EXPECT_EQ(songs.Update(Song(5, "Two")), btr::kModifiableKeyChanged);
    // Still positioned on the unchanged record: a valid update goes through.
    ASSERT_EQ(songs.Update(Song(2, "Deux")), btr::kSuccess);

    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(songs.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 2u);
    ASSERT_EQ(songs.Get(btr::kGetEqual, 1, testing::Padded("DEUX", 20)), btr::kSuccess);
    EXPECT_EQ(songs.number(), 2);
    EXPECT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(5)), btr::kKeyNotFound);
}

TEST_F(EngineWrite, ChangesThroughAnotherPositionBlockGiveConflicts) {
    SongFile a, b;
    ASSERT_EQ(a.Open(path), btr::kSuccess);
    ASSERT_EQ(b.Open(path), btr::kSuccess);
    ASSERT_EQ(a.Insert(Song(1, "One")), btr::kSuccess);
    ASSERT_EQ(a.Insert(Song(2, "Two")), btr::kSuccess);

    ASSERT_EQ(a.Get(btr::kGetEqual, 0, SongNumber(1)), btr::kSuccess);
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(1)), btr::kSuccess);
    ASSERT_EQ(a.Update(Song(1, "One", "01", "20260101", "by a")), btr::kSuccess);
    EXPECT_EQ(b.Update(Song(1, "One", "01", "20260101", "by b")), btr::kConflict);
    EXPECT_EQ(b.Delete(), btr::kConflict);
    // Reading again makes b's copy current; a's own updates never conflict with itself.
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(1)), btr::kSuccess);
    ASSERT_EQ(b.Update(Song(1, "One", "01", "20260101", "by b")), btr::kSuccess);
    EXPECT_EQ(a.Update(Song(1, "One", "01", "20260101", "again")), btr::kConflict);
    ASSERT_EQ(a.Get(btr::kGetEqual, 0, SongNumber(1)), btr::kSuccess);
    EXPECT_NE(a.record.find("by b"), std::string::npos);
    ASSERT_EQ(a.Update(Song(1, "One", "01", "20260101", "a1")), btr::kSuccess);
    ASSERT_EQ(a.Update(Song(1, "One", "01", "20260101", "a2")), btr::kSuccess);

    ASSERT_EQ(a.Get(btr::kGetEqual, 0, SongNumber(2)), btr::kSuccess);
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(2)), btr::kSuccess);
    ASSERT_EQ(a.Delete(), btr::kSuccess);
    EXPECT_EQ(b.Update(Song(2, "Two")), btr::kConflict) << "deleted under b";
    EXPECT_EQ(b.Delete(), btr::kConflict);
}

std::string QueryText(const std::string& path, const char* sql) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw, sql, -1, &stmt, nullptr);
    std::string mode;
    if (sqlite3_step(stmt) == SQLITE_ROW)
        mode = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return mode;
}

TEST_F(EngineWrite, AcceleratedWritesAreReadableAtOnceAndKeptAfterClose) {
    {
        SongFile bulk, reader;
        ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        ASSERT_EQ(reader.Open(path), btr::kSuccess);
        for (int n = 1; n <= 3000; ++n) ASSERT_EQ(bulk.Insert(Song(n, "Bulk")), btr::kSuccess);
        EXPECT_EQ(bulk.Insert(Song(7, "Again")), btr::kDuplicateKey);
        ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(reader.number(), 3000);
        // A normal write while the bulk goes on is durable on its own.
        ASSERT_EQ(reader.Update(Song(3000, "Normal")), btr::kSuccess);
        ASSERT_EQ(bulk.Insert(Song(3001, "Bulk")), btr::kSuccess);
        ASSERT_EQ(bulk.Get(btr::kGetEqual, 0, SongNumber(10)), btr::kSuccess);
        ASSERT_EQ(bulk.Update(Song(10, "Changed")), btr::kSuccess);
        // Reading by a key whose index the bulk put off.
        ASSERT_EQ(reader.Get(btr::kGetLast, 1), btr::kSuccess);
        EXPECT_EQ(reader.number(), 3000);  // "NORMAL", then "CHANGED", then the "BULK"s
        ASSERT_EQ(reader.Get(btr::kGetPrevious, 1), btr::kSuccess);
        EXPECT_EQ(reader.number(), 10);
        ASSERT_EQ(reader.Get(btr::kGetPrevious, 1), btr::kSuccess);
        EXPECT_EQ(reader.number(), 3001);
    }
    EXPECT_EQ(QueryText(path, "PRAGMA journal_mode"), "wal") << "normal journaling again";
    EXPECT_EQ(QueryText(path,
                        "SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                        "WHERE type = 'index' ORDER BY name)"),
              "records_k0 records_k1 records_k2");
    SongFile songs;
    ASSERT_EQ(songs.Open(path), btr::kSuccess);
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(songs.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 3001u);
    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(10)), btr::kSuccess);
    EXPECT_EQ(songs.record, Song(10, "Changed"));
    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(3000)), btr::kSuccess);
    EXPECT_EQ(songs.record, Song(3000, "Normal"));
    ASSERT_EQ(songs.Get(btr::kGetEqual, 1, testing::Padded("NORMAL", 20)), btr::kSuccess);
    EXPECT_EQ(songs.number(), 3000);
}

}  // namespace
}  // namespace toverin
