// A writer killed at any instant, and a file damaged on disk: what the engine keeps and what it
// can still read.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include "tests/store/EngineTestSupport.h"
#include "tests/support/DiskDamage.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::LeafPages;
using testing::Scribble;

using engine::EngineFile;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::SongNumber;
using testing::TempDir;

// Opens with the SQLite library alone (which also rolls back what a killed writer left) and
// runs its own consistency check.
std::string IntegrityCheck(const std::string& path) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_stmt* stmt = nullptr;
    std::string result = "cannot prepare";
    if (sqlite3_prepare_v2(raw, "PRAGMA integrity_check", -1, &stmt, nullptr) == SQLITE_OK) {
        result.clear();
        while (sqlite3_step(stmt) == SQLITE_ROW)
            result += reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    }
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return result;
}

int IndexCount(const std::string& path) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw, "SELECT count(*) FROM sqlite_master WHERE type = 'index'", -1, &stmt,
                       nullptr);
    int count = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int(stmt, 0) : -1;
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return count;
}

// Runs a child that writes in a loop in `mode` and reports each acknowledged insert through a
// pipe; kills it once `target` inserts were acknowledged. Returns the last acknowledged number.
int WriteUntilKilled(const std::string& path, int8_t mode, int target) {
    int fds[2];
    if (pipe(fds) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        SongFile f;
        if (f.Open(path, mode) != btr::kSuccess) _exit(1);
        std::string note(20, 'x');
        for (int n = 1;; ++n) {
            if (f.Insert(Song(n, "Crash", "01", "20260101", note)) != btr::kSuccess) _exit(2);
            if (n % 4 == 0) {
                // Rewrite and delete too, so that the kill may land in any kind of write.
                if (f.Get(btr::kGetEqual, 0, SongNumber(n - 1)) != btr::kSuccess) _exit(3);
                if (f.Update(Song(n - 1, "Rewritten", "02")) != btr::kSuccess) _exit(4);
                if (f.Get(btr::kGetEqual, 0, SongNumber(n - 2)) != btr::kSuccess) _exit(5);
                if (f.Delete() != btr::kSuccess) _exit(6);
            }
            if (write(fds[1], &n, sizeof n) != sizeof n) _exit(7);
        }
    }
    close(fds[1]);
    int acknowledged = 0, n = 0;
    while (acknowledged < target && read(fds[0], &n, sizeof n) == sizeof n) acknowledged = n;
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    close(fds[0]);
    EXPECT_TRUE(WIFSIGNALED(status))
        << "the writer stopped by itself, exit " << WEXITSTATUS(status);
    return acknowledged;
}

TEST(EngineCrash, KilledNormalWriterKeepsEveryAcknowledgedWrite) {
    TempDir dir;
    std::string path = dir.file("FRADA05.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        int acknowledged = WriteUntilKilled(path, btr::kOpenNormal, 150 + 37 * round);
        ASSERT_GT(acknowledged, 0);
        EXPECT_EQ(IntegrityCheck(path), "ok");

        SongFile f;
        ASSERT_EQ(f.Open(path), btr::kSuccess);
        for (int n = 1; n <= acknowledged; ++n) {
            // Every fourth insert m rewrites m - 1 and deletes m - 2.
            bool deleted = n % 4 == 2 && n + 2 <= acknowledged;
            bool rewritten = n % 4 == 3 && n + 1 <= acknowledged;
            int16_t status = f.Get(btr::kGetEqual, 0, SongNumber(n));
            // The kill may come after the next insert's delete and before its acknowledgement.
            if (n % 4 == 2 && n + 2 == acknowledged + 1 && status == btr::kKeyNotFound) continue;
            ASSERT_EQ(status, deleted ? btr::kKeyNotFound : btr::kSuccess) << n;
            if (rewritten) {
                EXPECT_EQ(f.record.substr(6, 9), "Rewritten") << n;
            }
        }
    }
}

TEST(EngineCrash, KilledBulkWriterLeavesASoundFile) {
    TempDir dir;
    std::string path = dir.file("FRADA06.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    int acknowledged = WriteUntilKilled(path, btr::kOpenAccelerated, 20000);
    ASSERT_GT(acknowledged, 0);
    EXPECT_EQ(IntegrityCheck(path), "ok");
    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    for (int8_t key : {0, 1, 2}) {
        int16_t first = f.Get(btr::kGetFirst, key);
        EXPECT_TRUE(first == btr::kSuccess || first == btr::kEndOfFile) << first;
    }
    // The first read by each key built the index the load had put off.
    EXPECT_EQ(IntegrityCheck(path), "ok");
    EXPECT_EQ(IndexCount(path), 3);
}

TEST(EngineCrash, KilledWhileBuildingAPutOffIndexLeavesTheFileAsItWas) {
    TempDir dir;
    std::string path = dir.file("FRADA07.bt6");
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    constexpr int kSongs = 60000;
    {
        SongFile bulk;
        ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int n = 1; n <= kSongs; ++n)
            ASSERT_EQ(bulk.Insert(Song(n, "Title " + std::to_string(n * 7919 % 1000))),
                      btr::kSuccess);
    }
    // A reader whose first read by key 1 builds that index, killed after a delay that doubles
    // until the build is done first.
    int killedDuringBuild = 0;
    for (int delayUs = 500;; delayUs *= 2) {
        SCOPED_TRACE(delayUs);
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            SongFile f;
            if (f.Open(path) != btr::kSuccess) _exit(1);
            char mark = 's';
            if (write(fds[1], &mark, 1) != 1) _exit(2);
            if (f.Get(btr::kGetFirst, 1) != btr::kSuccess) _exit(3);
            pause();
        }
        close(fds[1]);
        char mark = 0;
        ASSERT_EQ(read(fds[0], &mark, 1), 1);
        usleep(delayUs);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(fds[0]);
        // The index is there whole or not at all (integrity_check compares it with the rows).
        EXPECT_EQ(IntegrityCheck(path), "ok");
        int indexes = IndexCount(path);
        ASSERT_TRUE(indexes == 0 || indexes == 1) << indexes;
        if (indexes == 1) break;
        ++killedDuringBuild;
        ASSERT_LT(delayUs, 60 * 1000 * 1000);
    }
    EXPECT_GT(killedDuringBuild, 0);
    EXPECT_EQ(IndexCount(path), 1);

    SongFile f;
    ASSERT_EQ(f.Open(path, btr::kOpenReadOnly), btr::kSuccess);
    btr::PbTBtrFileBuf stat{};
    ASSERT_EQ(f.file.Stat(stat), btr::kSuccess);
    EXPECT_EQ(uint32_t{stat.RecordCount}, static_cast<uint32_t>(kSongs));
    int count = 0;
    std::string previous;
    for (int16_t s = f.Get(btr::kGetFirst, 1); s == btr::kSuccess; s = f.Get(btr::kGetNext, 1)) {
        ++count;
        EXPECT_LE(previous, f.record.substr(6, 20));
        previous = f.record.substr(6, 20);
    }
    EXPECT_EQ(count, kSongs);
}

class EngineDamage : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("FRAD022.bt6");
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        {
            SongFile bulk;
            ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
            for (int n = 1; n <= kRecords; ++n)
                ASSERT_EQ(bulk.Insert(Song(n, "Title " + std::to_string(n % 97))), btr::kSuccess);
        }
        // A first read by each key builds the indexes the load put off.
        SongFile reader;
        ASSERT_EQ(reader.Open(path), btr::kSuccess);
        for (int8_t key : {0, 1, 2}) ASSERT_EQ(reader.Get(btr::kGetFirst, key), btr::kSuccess);
    }
    // Reads forward with Get Next from the current record; returns the numbers read.
    std::vector<int> ReadOn(SongFile& f, uint16_t operation) {
        std::vector<int> numbers{f.number()};
        while ((last = f.Get(operation, 0)) == btr::kSuccess) numbers.push_back(f.number());
        return numbers;
    }

    static constexpr int kRecords = 3000;
    TempDir dir;
    std::string path;
    int16_t last = 0;
};

TEST_F(EngineDamage, ReadsAroundADamagedDataPage) {
    auto leaves = LeafPages(path, "records");
    ASSERT_GT(leaves.size(), 10u);
    ASSERT_FALSE(std::filesystem::exists(path + "-wal") &&
                 std::filesystem::file_size(path + "-wal") > 0);
    size_t middle = leaves.size() / 2;
    int before = 0;
    for (size_t i = 0; i < middle; ++i) before += leaves[i].second;
    int lost = leaves[middle].second;
    Scribble(path, leaves[middle].first);

    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
    std::vector<int> head = ReadOn(f, btr::kGetNext);
    EXPECT_EQ(last, btr::kIoError);
    EXPECT_EQ(static_cast<int>(head.size()), before);
    EXPECT_EQ(f.Get(btr::kGetNext, 0), btr::kIoError) << "the damage stays where it is";

    // The user gives a key past the damage; reading goes on from there to the end.
    EXPECT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(before + 1)), btr::kIoError);
    ASSERT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(before + lost)), btr::kSuccess);
    std::vector<int> tail = ReadOn(f, btr::kGetNext);
    EXPECT_EQ(last, btr::kEndOfFile);
    EXPECT_EQ(tail.front(), before + lost + 1);
    EXPECT_EQ(tail.back(), kRecords);
    EXPECT_EQ(head.size() + tail.size(), static_cast<size_t>(kRecords - lost));

    // And backwards, from below the damage.
    ASSERT_EQ(f.Get(btr::kGetLessThan, 0, SongNumber(before + 1)), btr::kSuccess);
    EXPECT_EQ(ReadOn(f, btr::kGetPrevious).size(), static_cast<size_t>(before));
    EXPECT_EQ(last, btr::kEndOfFile);
}

TEST_F(EngineDamage, ReadsAroundADamagedIndexPage) {
    auto leaves = LeafPages(path, "records_k0");
    ASSERT_GT(leaves.size(), 4u);
    Scribble(path, leaves[leaves.size() / 2].first);

    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
    std::vector<int> head = ReadOn(f, btr::kGetNext);
    ASSERT_EQ(last, btr::kIoError);
    ASSERT_GT(head.size(), 100u);
    ASSERT_LT(head.size(), static_cast<size_t>(kRecords));

    // Keys tried one after another, as a user would, until one lies past the damage.
    int probe = head.back();
    int16_t status = btr::kIoError;
    while (status == btr::kIoError && probe < kRecords) {
        status = f.Get(btr::kGetGreater, 0, SongNumber(++probe));
    }
    ASSERT_EQ(status, btr::kSuccess);
    std::vector<int> tail = ReadOn(f, btr::kGetNext);
    EXPECT_EQ(last, btr::kEndOfFile);
    EXPECT_EQ(tail.back(), kRecords);
    EXPECT_LT(probe - head.back(), 400) << "one index page holds far fewer keys";
}

constexpr int kLoaded = 3000;

// A bulk-loaded file of kLoaded songs whose indexes were never built, numbers rising (or
// falling) with the row ids, and a leaf page of its rows scribbled over in the middle: key 0
// cannot get its index any more (the build reads every row), so it is read in row order.
// `before` rows come before the damaged page in row order, `lost` are on it.
void LoadAndDamage(const std::string& path, bool rising, int& before, int& lost) {
    ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
    {
        SongFile bulk;
        ASSERT_EQ(bulk.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        for (int i = 1; i <= kLoaded; ++i) {
            int n = rising ? i : kLoaded + 1 - i;
            ASSERT_EQ(bulk.Insert(Song(n, "Title " + std::to_string(n % 97))), btr::kSuccess);
        }
    }
    ASSERT_EQ(IndexCount(path), 0);
    auto leaves = LeafPages(path, "records");
    size_t middle = leaves.size() / 2;
    before = 0;
    for (size_t i = 0; i < middle; ++i) before += leaves[i].second;
    lost = leaves[middle].second;
    Scribble(path, leaves[middle].first);
}

// The numbers of the current record and of every one `operation` reads on from it; `last` gets
// the status that ended the walk.
std::vector<int> ReadOn(SongFile& f, uint16_t operation, int16_t& last) {
    std::vector<int> numbers{f.number()};
    while ((last = f.Get(operation, 0)) == btr::kSuccess) numbers.push_back(f.number());
    return numbers;
}

TEST(EngineDamageBeforeIndexes, ReadsAroundADamagedPageInKeyOrderWithoutTheIndex) {
    TempDir dir;
    std::string path = dir.file("FRAD022.bt6");
    int before = 0, lost = 0;
    LoadAndDamage(path, true, before, lost);
    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    int16_t last = 0;
    ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
    std::vector<int> head = ReadOn(f, btr::kGetNext, last);
    EXPECT_EQ(last, btr::kIoError);
    EXPECT_EQ(static_cast<int>(head.size()), before);
    EXPECT_EQ(head.back(), before);

    // Where the answer could be among the unreadable records, the search says so...
    EXPECT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(before + 1)), btr::kIoError);
    EXPECT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(before + 2)), btr::kIoError);
    // ...past them, it finds its record and reads on to the end.
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(before + lost + 1)), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(before + lost + 1)), btr::kSuccess);
    std::vector<int> tail = ReadOn(f, btr::kGetNext, last);
    EXPECT_EQ(last, btr::kEndOfFile);
    EXPECT_EQ(tail.front(), before + lost + 2);
    EXPECT_EQ(tail.back(), kLoaded);
    EXPECT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(kLoaded + 1)), btr::kKeyNotFound);

    // And backwards from below them.
    ASSERT_EQ(f.Get(btr::kGetLessThan, 0, SongNumber(before)), btr::kSuccess);
    EXPECT_EQ(f.number(), before - 1);
    EXPECT_EQ(ReadOn(f, btr::kGetPrevious, last).size(), static_cast<size_t>(before - 1));
    EXPECT_EQ(last, btr::kEndOfFile);
    ASSERT_EQ(f.Get(btr::kGetLast, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), kLoaded);
}

TEST(EngineDamageBeforeIndexes, AFallingLoadIsReadAroundTheDamageToo) {
    // History is backed up newest first: key 0 falls as the row ids rise, and is read in
    // reverse row order.
    TempDir dir;
    std::string path = dir.file("FRAD035.btr");
    int before = 0, lost = 0;
    LoadAndDamage(path, false, before, lost);
    const int highestLost = kLoaded - before;
    const int lowestLost = highestLost - lost + 1;
    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    int16_t last = 0;
    ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
    std::vector<int> low = ReadOn(f, btr::kGetNext, last);
    EXPECT_EQ(last, btr::kIoError);
    EXPECT_EQ(low.front(), 1);
    EXPECT_EQ(low.back(), lowestLost - 1);
    EXPECT_EQ(static_cast<int>(low.size()), lowestLost - 1);

    EXPECT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(lowestLost - 1)), btr::kIoError);
    EXPECT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(lowestLost + 1)), btr::kIoError);
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(highestLost + 1)), btr::kSuccess);
    std::vector<int> high = ReadOn(f, btr::kGetNext, last);
    EXPECT_EQ(last, btr::kEndOfFile);
    EXPECT_EQ(high.back(), kLoaded);
    EXPECT_EQ(static_cast<int>(high.size()), kLoaded - highestLost);

    ASSERT_EQ(f.Get(btr::kGetLast, 0), btr::kSuccess);
    EXPECT_EQ(ReadOn(f, btr::kGetPrevious, last).back(), highestLost + 1);
    EXPECT_EQ(last, btr::kIoError);
    // Below the damage: an unread record might lie just below the value searched for, unless
    // the record found holds that value itself.
    EXPECT_EQ(f.Get(btr::kGetLessThan, 0, SongNumber(lowestLost)), btr::kIoError);
    ASSERT_EQ(f.Get(btr::kGetLessOrEqual, 0, SongNumber(lowestLost - 1)), btr::kSuccess);
    EXPECT_EQ(f.number(), lowestLost - 1);
    EXPECT_EQ(ReadOn(f, btr::kGetPrevious, last).back(), 1);
    EXPECT_EQ(last, btr::kEndOfFile);
}

}  // namespace
}  // namespace toverin
