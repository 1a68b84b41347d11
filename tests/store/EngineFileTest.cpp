// Record files as whole objects: Create, Open in its modes, Stat, Close, Stop, Reset, Version,
// and the statuses of files that are missing, foreign or in use.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>

#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using engine::EngineFile;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::TempDir;

TEST(EngineFile, StatReturnsTheCreationBufferWithTheRecordCount) {
    TempDir dir;
    std::string path = dir.file("FRADB22.bt6");
    btr::PbTBtrFileBuf fileBuf = SongFileBuf();
    ASSERT_EQ(EngineFile::Create(path, fileBuf), btr::kSuccess);

    SongFile songs;
    ASSERT_EQ(songs.Open(path), btr::kSuccess);
    for (int n = 1; n <= 3; ++n) ASSERT_EQ(songs.Insert(Song(n, "Title")), btr::kSuccess);

    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(songs.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 3u);
    stat.RecordCount = 0;
    EXPECT_EQ(std::memcmp(&stat, &fileBuf, sizeof fileBuf), 0) << "segments and flags as created";

    // Stat needs room for the header and every segment (4 here).
    std::string shortBuffer(16 + 3 * 16, '\0');
    EXPECT_EQ(songs.file.Call(btr::kStat, shortBuffer, -1), btr::kDataBufferTooShort);
}

TEST(EngineFile, CreateRejectsLayoutsThatDoNotFitTheRecord) {
    TempDir dir;
    auto create = [&](btr::PbTBtrFileBuf fileBuf) {
        return EngineFile::Create(dir.file("x"), fileBuf);
    };
    EXPECT_EQ(create(testing::MakeFileBuf(0, 1, {{1, 4, 0}})), 28);
    EXPECT_EQ(create(testing::MakeFileBuf(10, 1, {{0, 4, 0}})), 27);
    EXPECT_EQ(create(testing::MakeFileBuf(10, 1, {{8, 4, 0}})), 29) << "runs past the record";
    EXPECT_EQ(create(testing::MakeFileBuf(10, 0, {})), 26);
    EXPECT_EQ(create(testing::MakeFileBuf(10, 2, {{1, 4, 16}, {5, 2, 0}})), 27)
        << "the segmented key took both segments; the second key has none";
    EXPECT_FALSE(std::filesystem::exists(dir.file("x")));
}

TEST(EngineFile, OpenStatusesForMissingForeignAndUnknownFiles) {
    TempDir dir;
    SongFile songs;
    EXPECT_EQ(songs.Open(dir.file("FRAD003.btr")), btr::kFileNotFound);

    testing::WriteFile(dir.file("text.btr"), "not a record file at all, just some text\n");
    EXPECT_EQ(songs.Open(dir.file("text.btr")), btr::kNotARecordFile);
    testing::WriteFile(dir.file("empty.btr"), "");
    EXPECT_EQ(songs.Open(dir.file("empty.btr")), btr::kNotARecordFile);

    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(dir.file("other.db").c_str(), &raw), SQLITE_OK);
    sqlite3_exec(raw, "CREATE TABLE t(x); INSERT INTO t VALUES(1);", nullptr, nullptr, nullptr);
    sqlite3_close(raw);
    EXPECT_EQ(songs.Open(dir.file("other.db")), btr::kNotARecordFile);
    EXPECT_FALSE(songs.file.isOpen());
}

TEST(EngineFile, PathsAreTakenUpToTheTerminatorWithEitherSeparator) {
    TempDir dir;
    ASSERT_EQ(EngineFile::Create(dir.file("a.btr"), SongFileBuf()), btr::kSuccess);
    // The access layer passes a 255-byte blank-padded key buffer, or appends one blank.
    std::string path = dir.path().string() + "\\a.btr";
    std::string key = testing::Padded(path, 255, ' ');
    char block[128] = {};
    uint32_t length = 0;
    ASSERT_EQ(BTRCALL(btr::kOpen, block, nullptr, &length, key.data(), 255, 0), btr::kSuccess);
    EXPECT_EQ(BTRCALL(btr::kClose, block, nullptr, &length, nullptr, 0, 0), btr::kSuccess);
    EXPECT_EQ(BTRCALL(btr::kClose, block, nullptr, &length, nullptr, 0, 0), btr::kFileNotOpen);
}

TEST(EngineFile, CreateReplacesAFileUnlessItIsOpen) {
    TempDir dir;
    std::string path = dir.file("FRAD040.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    {
        SongFile songs;
        ASSERT_EQ(songs.Open(path), btr::kSuccess);
        ASSERT_EQ(songs.Insert(Song(1, "Kept")), btr::kSuccess);
        EXPECT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kFileInUseCreate);
        EXPECT_EQ(songs.Get(btr::kGetFirst, 0), btr::kSuccess) << "the open file is untouched";
    }
    btr::PbTBtrFileBuf other = testing::MakeFileBuf(32, 1, {{1, 4, 1}});
    ASSERT_EQ(EngineFile::Create(path, other), btr::kSuccess);
    EngineFile file;
    ASSERT_EQ(file.Open(path), btr::kSuccess);
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint16_t{stat.RecLen}, 32);
    EXPECT_EQ(uint32_t{stat.RecordCount}, 0u);
    file.Close();

    testing::WriteFile(path, "garbage left by something else");
    EXPECT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    EXPECT_EQ(file.Open(path), btr::kSuccess);
}

TEST(EngineFile, ExclusiveOpenKeepsOtherOpenersOut) {
    TempDir dir;
    std::string path = dir.file("FRAD010.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    {
        EngineFile owner, other;
        ASSERT_EQ(owner.Open(path, btr::kOpenExclusive), btr::kSuccess);
        EXPECT_EQ(other.Open(path), btr::kFileLocked);
        EXPECT_EQ(other.Open(path, btr::kOpenReadOnly), btr::kFileLocked);
    }
    EngineFile first, second;
    ASSERT_EQ(first.Open(path), btr::kSuccess);
    EXPECT_EQ(second.Open(path, btr::kOpenExclusive), btr::kFileLocked);
    first.Close();
    EXPECT_EQ(second.Open(path, btr::kOpenExclusive), btr::kSuccess);
}

TEST(EngineFile, ReadOnlyHandleReadsButEveryWriteIsDenied) {
    TempDir dir;
    std::string path = dir.file("FRAD001.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    SongFile writer, reader;
    ASSERT_EQ(writer.Open(path), btr::kSuccess);
    ASSERT_EQ(writer.Insert(Song(1, "One")), btr::kSuccess);
    ASSERT_EQ(reader.Open(path, btr::kOpenReadOnly), btr::kSuccess);
    ASSERT_EQ(reader.Get(btr::kGetFirst, 0), btr::kSuccess);
    EXPECT_EQ(reader.Insert(Song(2, "Two")), btr::kAccessDenied);
    EXPECT_EQ(reader.Update(Song(1, "Changed")), btr::kAccessDenied);
    EXPECT_EQ(reader.Delete(), btr::kAccessDenied);
    EXPECT_EQ(writer.Get(btr::kGetEqual, 0, "000001"), btr::kSuccess);
    EXPECT_EQ(writer.record, Song(1, "One"));
}

TEST(EngineFile, StopAndResetCloseEveryHandle) {
    TempDir dir;
    ASSERT_EQ(EngineFile::Create(dir.file("a"), SongFileBuf()), btr::kSuccess);
    ASSERT_EQ(EngineFile::Create(dir.file("b"), SongFileBuf()), btr::kSuccess);
    for (uint16_t operation : {btr::kStop, btr::kReset}) {
        SongFile a, b;
        ASSERT_EQ(a.Open(dir.file("a")), btr::kSuccess);
        ASSERT_EQ(b.Open(dir.file("b"), btr::kOpenAccelerated), btr::kSuccess);
        ASSERT_EQ(b.Insert(Song(7, "Bulk")), btr::kSuccess);
        uint32_t length = 0;
        char block[128] = {};
        EXPECT_EQ(BTRCALL(operation, block, nullptr, &length, nullptr, 0, 0), btr::kSuccess);
        EXPECT_EQ(a.Get(btr::kGetFirst, 0), btr::kFileNotOpen);
        EXPECT_EQ(b.Get(btr::kGetFirst, 0), btr::kFileNotOpen);
        ASSERT_EQ(b.Open(dir.file("b")), btr::kSuccess);
        EXPECT_EQ(b.Get(btr::kGetEqual, 0, "000007"), btr::kSuccess) << "made durable by Stop";
        EXPECT_EQ(b.Delete(), btr::kSuccess);
    }
}

TEST(EngineFile, VersionUnknownOperationsAndStrangePositionBlocks) {
    char version[16] = {};
    uint32_t length = sizeof version;
    char block[128] = {};
    ASSERT_EQ(BTRCALL(btr::kVersion, block, version, &length, nullptr, 0, 0), btr::kSuccess);
    ASSERT_EQ(length, 10u);
    btr::VersionComponent components[2];
    std::memcpy(components, version, sizeof components);
    EXPECT_EQ(uint16_t{components[0].major}, btr::kEngineMajor);
    EXPECT_EQ(components[0].product, 'T');
    EXPECT_EQ(uint16_t{components[1].major}, 3);
    EXPECT_EQ(components[1].product, 'S');
    length = 4;
    EXPECT_EQ(BTRCALL(btr::kVersion, block, version, &length, nullptr, 0, 0),
              btr::kDataBufferTooShort);

    EXPECT_EQ(BTRCALL(99, block, version, &length, nullptr, 0, 0), btr::kInvalidOperation);
    std::memset(block, ' ', sizeof block);  // the access layer's initial block
    length = sizeof version;
    EXPECT_EQ(BTRCALL(btr::kGetFirst, block, version, &length, nullptr, 0, 0), btr::kFileNotOpen);
}

}  // namespace
}  // namespace toverin
