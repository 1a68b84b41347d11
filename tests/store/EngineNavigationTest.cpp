// Reading in key order: searches, duplicates, case-insensitive and segmented keys, and the
// currency of each position block across reads and writes.
#include <gtest/gtest.h>

#include <vector>

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

class EngineNavigation : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("FRADB22.bt6");
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        ASSERT_EQ(songs.Open(path), btr::kSuccess);
    }
    // Numbers met by repeating `operation` until it fails; the failing status in `last`.
    std::vector<int> Walk(SongFile& f, uint16_t operation, int8_t keyNumber) {
        std::vector<int> numbers;
        while ((last = f.Get(operation, keyNumber)) == btr::kSuccess) numbers.push_back(f.number());
        return numbers;
    }
    std::vector<int> WalkFrom(uint16_t start, uint16_t next, int8_t keyNumber,
                              const std::string& search = "", char fill = '\0') {
        std::vector<int> numbers;
        if (songs.Get(start, keyNumber, search, fill) != btr::kSuccess) return numbers;
        numbers.push_back(songs.number());
        for (int n : Walk(songs, next, keyNumber)) numbers.push_back(n);
        return numbers;
    }

    TempDir dir;
    std::string path;
    SongFile songs;
    int16_t last = 0;
};

using V = std::vector<int>;

TEST_F(EngineNavigation, SearchesOnAUniqueKey) {
    for (int n : {30, 10, 50, 20, 40}) ASSERT_EQ(songs.Insert(Song(n, "T")), btr::kSuccess);

    EXPECT_EQ(WalkFrom(btr::kGetFirst, btr::kGetNext, 0), (V{10, 20, 30, 40, 50}));
    EXPECT_EQ(last, btr::kEndOfFile);
    EXPECT_EQ(WalkFrom(btr::kGetLast, btr::kGetPrevious, 0), (V{50, 40, 30, 20, 10}));
    EXPECT_EQ(last, btr::kEndOfFile);

    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(30)), btr::kSuccess);
    EXPECT_EQ(songs.record, Song(30, "T"));
    EXPECT_EQ(songs.key.substr(0, 6), "000030") << "the key comes back in the key buffer";
    EXPECT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(31)), btr::kKeyNotFound);
    // A failed Get Equal stands where its value would: Get Next goes on from there.
    ASSERT_EQ(songs.Get(btr::kGetNext, 0), btr::kSuccess);
    EXPECT_EQ(songs.number(), 40);

    struct Case {
        uint16_t operation;
        int search;
        int16_t status;
        int found;
    };
    for (Case c : {Case{btr::kGetGreater, 30, 0, 40}, Case{btr::kGetGreater, 31, 0, 40},
                   Case{btr::kGetGreater, 50, 9, 0}, Case{btr::kGetGreaterOrEqual, 30, 0, 30},
                   Case{btr::kGetGreaterOrEqual, 51, 9, 0}, Case{btr::kGetLessThan, 30, 0, 20},
                   Case{btr::kGetLessThan, 10, 9, 0}, Case{btr::kGetLessOrEqual, 30, 0, 30},
                   Case{btr::kGetLessOrEqual, 29, 0, 20}, Case{btr::kGetLessOrEqual, 9, 9, 0}}) {
        SCOPED_TRACE(::testing::Message() << "operation " << c.operation << " on " << c.search);
        ASSERT_EQ(songs.Get(c.operation, 0, SongNumber(c.search)), c.status);
        if (c.status == 0) {
            EXPECT_EQ(songs.number(), c.found);
        }
    }
    // Callers search with high-value or low-value filler past the part they know.
    EXPECT_EQ(WalkFrom(btr::kGetGreaterOrEqual, btr::kGetNext, 0, "00003", '\0'), (V{30, 40, 50}));
    EXPECT_EQ(WalkFrom(btr::kGetLessOrEqual, btr::kGetPrevious, 0, "00002", '\xff'), (V{20, 10}));
}

TEST_F(EngineNavigation, DuplicatesComeBackInInsertionOrderBothWays) {
    ASSERT_EQ(songs.Insert(Song(9, "Alpha")), btr::kSuccess);
    for (int n : {5, 3, 8, 1}) ASSERT_EQ(songs.Insert(Song(n, "Same")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(2, "Zulu")), btr::kSuccess);

    EXPECT_EQ(WalkFrom(btr::kGetFirst, btr::kGetNext, 1), (V{9, 5, 3, 8, 1, 2}));
    EXPECT_EQ(WalkFrom(btr::kGetLast, btr::kGetPrevious, 1), (V{2, 1, 8, 3, 5, 9}));
    EXPECT_EQ(WalkFrom(btr::kGetEqual, btr::kGetNext, 1, testing::Padded("Same", 20)),
              (V{5, 3, 8, 1, 2}));
    EXPECT_EQ(WalkFrom(btr::kGetLessOrEqual, btr::kGetPrevious, 1, testing::Padded("Same", 20)),
              (V{1, 8, 3, 5, 9}));
    EXPECT_EQ(WalkFrom(btr::kGetGreater, btr::kGetNext, 1, testing::Padded("Same", 20)), (V{2}));
    EXPECT_EQ(WalkFrom(btr::kGetLessThan, btr::kGetPrevious, 1, testing::Padded("Same", 20)),
              (V{9}));

    // Turning round in the middle of the duplicates.
    ASSERT_EQ(songs.Get(btr::kGetEqual, 1, testing::Padded("Same", 20)), btr::kSuccess);
    ASSERT_EQ(songs.Get(btr::kGetNext, 1), btr::kSuccess);
    ASSERT_EQ(songs.Get(btr::kGetNext, 1), btr::kSuccess);
    EXPECT_EQ(songs.number(), 8);
    EXPECT_EQ(Walk(songs, btr::kGetPrevious, 1), (V{3, 5, 9}));
}

TEST_F(EngineNavigation, CaseInsensitiveAndSegmentedKeys) {
    // Windows-1252: é (0xE9) sorts with É (0xC9), after Z; ÷ (0xF7) is not a letter.
    ASSERT_EQ(songs.Insert(Song(1,
                                "b\xe9"
                                "ton")),
              btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(2, "B\xc9TON")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(3, "abba")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(4, "\xf7x")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(5, "Bz")), btr::kSuccess);
    EXPECT_EQ(WalkFrom(btr::kGetFirst, btr::kGetNext, 1), (V{3, 5, 1, 2, 4}));
    ASSERT_EQ(songs.Get(btr::kGetEqual, 1, testing::Padded("b\xc9tOn", 20)), btr::kSuccess);
    EXPECT_EQ(songs.number(), 1);
    EXPECT_EQ(songs.key.substr(0, 5), "b\xe9ton") << "the key as the record holds it";
    EXPECT_EQ(songs.Get(btr::kGetEqual, 1, testing::Padded("\xd7X", 20)), btr::kKeyNotFound);

    // Station then date, both parts compared as bytes.
    ASSERT_EQ(songs.Insert(Song(10, "x", "02", "20260105")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(11, "x", "01", "20260301")), btr::kSuccess);
    ASSERT_EQ(songs.Insert(Song(12, "x", "02", "20251231")), btr::kSuccess);
    ASSERT_EQ(songs.Get(btr::kGetGreaterOrEqual, 2, "02"), btr::kSuccess);
    EXPECT_EQ(songs.number(), 12);
    EXPECT_EQ(songs.key.substr(0, 10), "0220251231");
    EXPECT_EQ(Walk(songs, btr::kGetNext, 2), (V{10}));
    ASSERT_EQ(songs.Get(btr::kGetLessThan, 2, "02"), btr::kSuccess);
    EXPECT_EQ(songs.number(), 11);
}

TEST_F(EngineNavigation, CurrencyAcrossDeleteInsertAndUpdate) {
    for (int n = 1; n <= 6; ++n) ASSERT_EQ(songs.Insert(Song(n * 10, "T")), btr::kSuccess);

    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(30)), btr::kSuccess);
    ASSERT_EQ(songs.Delete(), btr::kSuccess);
    EXPECT_EQ(songs.Delete(), btr::kInvalidPositioning) << "nothing current after a delete";
    EXPECT_EQ(songs.Update(Song(30, "T")), btr::kInvalidPositioning);
    ASSERT_EQ(songs.Get(btr::kGetNext, 0), btr::kSuccess);
    EXPECT_EQ(songs.number(), 40);

    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(40)), btr::kSuccess);
    ASSERT_EQ(songs.Delete(), btr::kSuccess);
    ASSERT_EQ(songs.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(songs.number(), 20);

    // Insert stands on the new record in the order of the key it names.
    ASSERT_EQ(songs.Insert(Song(35, "M")), btr::kSuccess);
    EXPECT_EQ(Walk(songs, btr::kGetNext, 0), (V{50, 60}));
    ASSERT_EQ(songs.Insert(Song(36, "A"), 1), btr::kSuccess);
    EXPECT_EQ(Walk(songs, btr::kGetNext, 1), (V{35, 10, 20, 50, 60}));

    // Update moves the position with the record's new key value.
    ASSERT_EQ(songs.Get(btr::kGetEqual, 0, SongNumber(10)), btr::kSuccess);
    ASSERT_EQ(songs.Update(Song(10, "Z"), 1), btr::kSuccess);
    EXPECT_EQ(Walk(songs, btr::kGetNext, 1), V{});
    EXPECT_EQ(Walk(songs, btr::kGetPrevious, 1), (V{60, 50, 20, 35, 36}));
}

// A walk down a key takes each record from the table apart from the index; what another
// position block changes between two steps must show, records in full.
TEST_F(EngineNavigation, AWalkDownSeesWhatAnotherBlockWritesOnTheWay) {
    for (int n = 1; n <= 300; ++n) ASSERT_EQ(songs.Insert(Song(n, "Old")), btr::kSuccess);
    SongFile other;
    ASSERT_EQ(other.Open(path), btr::kSuccess);
    std::vector<std::string> met;
    int16_t status = songs.Get(btr::kGetLast, 0);
    while (status == btr::kSuccess) {
        met.push_back(songs.record);
        if (songs.number() == 200) {
            ASSERT_EQ(other.Get(btr::kGetEqual, 0, SongNumber(199)), btr::kSuccess);
            ASSERT_EQ(other.Update(Song(199, "New")), btr::kSuccess);
            ASSERT_EQ(other.Get(btr::kGetEqual, 0, SongNumber(198)), btr::kSuccess);
            ASSERT_EQ(other.Delete(), btr::kSuccess);
            ASSERT_EQ(other.Insert(Song(0, "First")), btr::kSuccess);
        }
        status = songs.Get(btr::kGetPrevious, 0);
    }
    EXPECT_EQ(status, btr::kEndOfFile);
    ASSERT_EQ(met.size(), 300u);
    EXPECT_EQ(met[100], Song(200, "Old"));
    EXPECT_EQ(met[101], Song(199, "New"));
    EXPECT_EQ(met[102], Song(197, "Old"));
    EXPECT_EQ(met.back(), Song(0, "First"));
    // Down a key with duplicates, whose order is not the rows' order.
    V byTitle = WalkFrom(btr::kGetLast, btr::kGetPrevious, 1);
    ASSERT_EQ(byTitle.size(), 300u);
    EXPECT_EQ((V{byTitle[0], byTitle[297], byTitle[298], byTitle[299]}), (V{300, 1, 199, 0}))
        << "OLD from the newest, then NEW, then FIRST";
}

TEST_F(EngineNavigation, NoPositionChangedKeyAndShortBuffers) {
    ASSERT_EQ(songs.Insert(Song(1, "One")), btr::kSuccess);
    SongFile fresh;
    ASSERT_EQ(fresh.Open(path), btr::kSuccess);
    EXPECT_EQ(fresh.Get(btr::kGetNext, 0), btr::kInvalidPositioning);
    EXPECT_EQ(fresh.Get(btr::kGetPrevious, 0), btr::kInvalidPositioning);
    ASSERT_EQ(fresh.Get(btr::kGetFirst, 1), btr::kSuccess);
    EXPECT_EQ(fresh.Get(btr::kGetNext, 0), btr::kDifferentKeyNumber);
    EXPECT_EQ(fresh.Get(btr::kGetFirst, 3), btr::kInvalidKeyNumber);
    EXPECT_EQ(fresh.Get(btr::kGetFirst, -1), btr::kInvalidKeyNumber);

    std::string data(10, '\0');
    std::string key(255, '\0');
    ASSERT_EQ(fresh.file.Call(btr::kGetFirst, data, key, 0), btr::kDataBufferTooShort);
    EXPECT_EQ(data, Song(1, "One").substr(0, 10)) << "what fits is returned";
    uint32_t length = 10;
    data.assign(10, '\0');
    EXPECT_EQ(BTRCALL(btr::kGetFirst, fresh.file.positionBlock(), data.data(), &length, key.data(),
                      255, 0),
              btr::kDataBufferTooShort);
    EXPECT_EQ(length, testing::kSongLength);
    data.assign(testing::kSongLength, '\0');
    key.assign(5, '\0');
    EXPECT_EQ(fresh.file.Call(btr::kGetFirst, data, key, 0), btr::kKeyBufferTooShort);
}

TEST_F(EngineNavigation, ScansFollowWritesMadeThroughOtherPositionBlocks) {
    for (int n = 1; n <= 200; ++n) ASSERT_EQ(songs.Insert(Song(n * 2, "Same")), btr::kSuccess);
    SongFile reader, writer;
    ASSERT_EQ(reader.Open(path), btr::kSuccess);
    ASSERT_EQ(writer.Open(path), btr::kSuccess);

    // Reading in duplicate order (key 1) while another block inserts ahead and deletes ahead,
    // and while this block rewrites every record it reads.
    ASSERT_EQ(reader.Get(btr::kGetFirst, 1), btr::kSuccess);
    std::vector<int> seen{reader.number()};
    for (;;) {
        int current = reader.number();
        if (current == 100) {
            ASSERT_EQ(writer.Insert(Song(401, "Same")), btr::kSuccess);  // joins the end
            ASSERT_EQ(writer.Get(btr::kGetEqual, 0, SongNumber(102)), btr::kSuccess);
            ASSERT_EQ(writer.Delete(), btr::kSuccess);
        }
        ASSERT_EQ(reader.Update(Song(current, "Same", "01", "20260101", "seen"), 1), btr::kSuccess);
        int16_t status = reader.Get(btr::kGetNext, 1);
        if (status == btr::kEndOfFile) break;
        ASSERT_EQ(status, btr::kSuccess);
        seen.push_back(reader.number());
    }
    ASSERT_EQ(seen.size(), 200u);
    EXPECT_EQ(seen[49], 100);
    EXPECT_EQ(seen[50], 104) << "the record deleted ahead is skipped";
    EXPECT_EQ(seen.back(), 401) << "the record inserted ahead is met";
}

}  // namespace
}  // namespace toverin
