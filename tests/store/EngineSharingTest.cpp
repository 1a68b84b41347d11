// Files shared with other programs: what another process commits between two reads shows at the
// next one, a file held open and idle does not keep the log from being reset, and files on
// network shares keep a journal that is safe there.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "store/engine/FileSystems.h"
#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using engine::EngineFile;
using testing::OtherProcess;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::SongNumber;
using testing::TempDir;

constexpr int kSongs = 400;

// Songs 2, 4 … 2 × kSongs (odd numbers stay free), their titles in five groups of duplicates.
std::string Stock(int n, const std::string& note = "") {
    return Song(n, "Title " + std::to_string(n % 10), "01", "20260101", note);
}

// The journal a fresh connection finds the file in ("wal", "delete").
std::string JournalOf(const std::string& path) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw, "PRAGMA journal_mode", -1, &stmt, nullptr);
    std::string mode;
    if (sqlite3_step(stmt) == SQLITE_ROW)
        mode = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return mode;
}

void FillStock(const std::string& path) {
    engine::SetSyncedWrites(false);
    {
        SongFile f;
        ASSERT_EQ(f.Open(path), btr::kSuccess);
        for (int i = 1; i <= kSongs; ++i) ASSERT_EQ(f.Insert(Stock(2 * i)), btr::kSuccess);
    }
    engine::SetSyncedWrites(true);
}

// The other process's side: step = operation × 10000 + song number. 1 deletes the song, 2
// rewrites it with the note "changed", 3 inserts it. Answers the status.
std::function<int(int)> Writer(const std::string& path) {
    auto file = std::make_shared<SongFile>();
    return [file, path](int step) {
        if (!file->file.isOpen() && file->Open(path) != btr::kSuccess) return -1;
        int n = step % 10000;
        switch (step / 10000) {
            case 1: {
                int16_t status = file->Get(btr::kGetEqual, 0, SongNumber(n));
                return status != btr::kSuccess ? int{status} : int{file->Delete()};
            }
            case 2: {
                int16_t status = file->Get(btr::kGetEqual, 0, SongNumber(n));
                return status != btr::kSuccess ? int{status}
                                               : int{file->Update(Stock(n, "changed"))};
            }
            case 3:
                return int{file->Insert(Stock(n, "inserted"))};
        }
        return -2;
    };
}

class EngineSharing : public ::testing::Test {
  protected:
    void SetUp() override {
        path = dir.file("FRADB22.bt6");
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        FillStock(path);
    }
    // The records met walking all of `key` one way.
    std::vector<std::string> WalkAll(int8_t key, bool forward) {
        SongFile f;
        EXPECT_EQ(f.Open(path), btr::kSuccess);
        std::vector<std::string> records;
        int16_t status = f.Get(forward ? btr::kGetFirst : btr::kGetLast, key);
        while (status == btr::kSuccess) {
            records.push_back(f.record);
            status = f.Get(forward ? btr::kGetNext : btr::kGetPrevious, key);
        }
        return records;
    }

    TempDir dir;
    std::string path;
};

// A reader that has gone some way (so that it reads ahead) meets, at its next Get Next, the
// records another process deleted, rewrote and inserted just ahead of it, as they now are.
TEST_F(EngineSharing, AScanSeesWhatAnotherProcessCommittedBetweenTwoReads) {
    OtherProcess other(Writer(path));
    int round = 0;
    for (int8_t key : {0, 1}) {
        for (bool forward : {true, false}) {
            SCOPED_TRACE(::testing::Message()
                         << "key " << int(key) << (forward ? " forward" : " backward"));
            std::vector<std::string> order = WalkAll(key, forward);
            const size_t at = 40 + 50 * static_cast<size_t>(round++);
            SongFile reader;
            ASSERT_EQ(reader.Open(path, round % 2 ? btr::kOpenReadOnly : btr::kOpenNormal),
                      btr::kSuccess);
            ASSERT_EQ(reader.Get(forward ? btr::kGetFirst : btr::kGetLast, key), btr::kSuccess);
            for (size_t i = 1; i <= at; ++i)
                ASSERT_EQ(reader.Get(forward ? btr::kGetNext : btr::kGetPrevious, key),
                          btr::kSuccess);
            ASSERT_EQ(reader.record, order[at]);

            const int deleted = testing::NumberOf(order[at + 2]);
            const int rewritten = testing::NumberOf(order[at + 3]);
            ASSERT_EQ(other.Run(10000 + deleted), btr::kSuccess);
            ASSERT_EQ(other.Run(20000 + rewritten), btr::kSuccess);
            // On key 0 read forward, a new record lands between two ahead.
            const int inserted = testing::NumberOf(order[at + 4]) + 1;
            if (key == 0 && forward) {
                ASSERT_EQ(other.Run(30000 + inserted), btr::kSuccess);
            }

            std::vector<std::string> met;
            for (int i = 0; i < 4; ++i) {
                ASSERT_EQ(reader.Get(forward ? btr::kGetNext : btr::kGetPrevious, key),
                          btr::kSuccess);
                met.push_back(reader.record);
            }
            std::vector<std::string> expected = {order[at + 1], Stock(rewritten, "changed"),
                                                 order[at + 4], order[at + 5]};
            if (key == 0 && forward) expected[3] = Stock(inserted, "inserted");
            EXPECT_EQ(met, expected);
        }
    }
}

// The viewer left open on a record, a read-only check positioned too, while another process
// writes 100,000 times: SQLite resets the log as usual, which stays at its usual size (about
// 1,000 pages between checkpoints). A reader that kept a snapshot would make it grow by every
// write.
TEST_F(EngineSharing, AFileHeldOpenAndIdleDoesNotKeepTheLogGrowing) {
    constexpr int kWrites = 100000;
    constexpr uintmax_t kGiveUp = 64 << 20;
    OtherProcess other([this](int) {
        engine::SetSyncedWrites(false);  // the test is about the log, not about the disk
        SongFile f;
        if (f.Open(path) != btr::kSuccess) return -1;
        uintmax_t largest = 0;
        for (int i = 0; i < kWrites; ++i) {
            int n = 2 * (1 + i % kSongs);
            if (f.Get(btr::kGetEqual, 0, SongNumber(n)) != btr::kSuccess) return -2;
            if (f.Update(Stock(n, "w" + std::to_string(i))) != btr::kSuccess) return -3;
            if (i % 500 == 0) {
                std::error_code ec;
                largest = std::max(largest, fs::file_size(path + "-wal", ec));
                if (largest > kGiveUp) return -4;
            }
        }
        return static_cast<int>(largest / 1024);
    });
    SongFile viewer, check;
    ASSERT_EQ(viewer.Open(path), btr::kSuccess);
    ASSERT_EQ(check.Open(path, btr::kOpenReadOnly), btr::kSuccess);
    ASSERT_EQ(viewer.Get(btr::kGetFirst, 1), btr::kSuccess);
    for (int i = 0; i < 20; ++i) ASSERT_EQ(viewer.Get(btr::kGetNext, 1), btr::kSuccess);
    ASSERT_EQ(check.Get(btr::kGetEqual, 0, SongNumber(100)), btr::kSuccess);

    int largestKiB = other.Run(1);
    ASSERT_GE(largestKiB, 0) << "the writer failed, or the log passed 64 MiB";
    EXPECT_LT(largestKiB, 8 * 1024);
    EXPECT_LT(fs::file_size(path + "-wal"), 8u << 20);

    // Both read on from where they were, and find each record as the last write left it.
    auto lastNote = [](int n) { return "w" + std::to_string(kWrites - kSongs + n / 2 - 1); };
    ASSERT_EQ(check.Get(btr::kGetNext, 0), btr::kSuccess);
    EXPECT_EQ(check.record, Stock(102, lastNote(102)));
    ASSERT_EQ(viewer.Get(btr::kGetNext, 1), btr::kSuccess);
    int n = viewer.number();
    EXPECT_EQ(viewer.record, Stock(n, lastNote(n)));
}

// Currency after a failed read: no record to update, delete or locate, and the place where the
// value searched for would stand.
TEST_F(EngineSharing, AFailedSearchLeavesNoCurrentRecord) {
    SongFile f;
    ASSERT_EQ(f.Open(path), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(100)), btr::kSuccess);
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(101)), btr::kKeyNotFound);
    EXPECT_EQ(f.Update(Stock(100, "lost")), btr::kInvalidPositioning);
    EXPECT_EQ(f.Delete(), btr::kInvalidPositioning);
    std::string position(4, '\0');
    EXPECT_EQ(f.file.Call(btr::kGetPosition, position, 0), btr::kInvalidPositioning);
    ASSERT_EQ(f.Get(btr::kGetNext, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 102) << "on from where 101 would stand";
    ASSERT_EQ(f.Get(btr::kGetEqual, 0, SongNumber(101)), btr::kKeyNotFound);
    ASSERT_EQ(f.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 100);

    // Off either end: Get Next and Get Previous come back from that end.
    EXPECT_EQ(f.Get(btr::kGetGreater, 0, SongNumber(2 * kSongs)), btr::kEndOfFile);
    EXPECT_EQ(f.Update(Stock(2 * kSongs, "lost")), btr::kInvalidPositioning);
    EXPECT_EQ(f.Get(btr::kGetNext, 0), btr::kEndOfFile);
    ASSERT_EQ(f.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 2 * kSongs) << "the value searched for itself, from after it";
    EXPECT_EQ(f.Get(btr::kGetLessThan, 0, SongNumber(2)), btr::kEndOfFile);
    ASSERT_EQ(f.Get(btr::kGetNext, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 2);
    // A key with duplicates: after a failed Get Greater, Get Previous starts with the last
    // record of the group searched for.
    EXPECT_EQ(f.Get(btr::kGetGreater, 1, testing::Padded("TITLE 8", 20)), btr::kEndOfFile);
    ASSERT_EQ(f.Get(btr::kGetPrevious, 1), btr::kSuccess);
    EXPECT_EQ(f.number(), 2 * kSongs - 2);
    // Get Next that runs off the end leaves no current record either, and the last one read
    // stays the place.
    ASSERT_EQ(f.Get(btr::kGetLast, 0), btr::kSuccess);
    EXPECT_EQ(f.Get(btr::kGetNext, 0), btr::kEndOfFile);
    EXPECT_EQ(f.Delete(), btr::kInvalidPositioning);
    ASSERT_EQ(f.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(f.number(), 2 * kSongs - 2);
    // A failed Get Direct leaves no position at all.
    std::string gone = std::string("\xff\xff\x00\x00", 4) + std::string(60, '\0');
    EXPECT_EQ(f.file.Call(btr::kGetDirect, gone, 0), btr::kInvalidPositioning);
    EXPECT_EQ(f.Get(btr::kGetNext, 0), btr::kInvalidPositioning);
    EXPECT_EQ(f.Update(Stock(2, "lost")), btr::kInvalidPositioning);
}

// Get Position and Get Direct: a record found again by its identity, whatever its key values,
// and made current in the order of another key.
TEST_F(EngineSharing, GetDirectFindsARecordByThePositionGetPositionGave) {
    SongFile a, b;
    ASSERT_EQ(a.Open(path), btr::kSuccess);
    ASSERT_EQ(b.Open(path), btr::kSuccess);
    // Two records sharing their title (key 1): the second one read by key 1.
    ASSERT_EQ(a.Get(btr::kGetEqual, 1, testing::Padded("TITLE 4", 20)), btr::kSuccess);
    ASSERT_EQ(a.number(), 4);
    ASSERT_EQ(a.Get(btr::kGetNext, 1), btr::kSuccess);
    ASSERT_EQ(a.number(), 14);
    std::string position(64, '\0');
    ASSERT_EQ(a.file.Call(btr::kGetPosition, position, 0), btr::kSuccess);
    ASSERT_EQ(position.size(), 4u) << "the data length is 4";
    std::string tooShort(3, '\0');
    EXPECT_EQ(a.file.Call(btr::kGetPosition, tooShort, 0), btr::kDataBufferTooShort);

    // Another block rewrites it: a's update conflicts. Found again by its key value, the first
    // of the group would be another record; by its position, it is the one a read.
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(14)), btr::kSuccess);
    ASSERT_EQ(b.Update(Stock(14, "by b")), btr::kSuccess);
    EXPECT_EQ(a.Update(Stock(14, "by a")), btr::kConflict);
    ASSERT_EQ(a.Get(btr::kGetEqual, 1, testing::Padded("TITLE 4", 20)), btr::kSuccess);
    EXPECT_EQ(a.number(), 4);
    std::string direct = position + std::string(testing::kSongLength - 4, '\0');
    std::string key(255, '\0');
    ASSERT_EQ(a.file.Call(btr::kGetDirect, direct, key, 1), btr::kSuccess);
    EXPECT_EQ(direct, Stock(14, "by b"));
    EXPECT_EQ(key.substr(0, 20), testing::Padded("Title 4", 20)) << "key 1 as the record holds it";
    ASSERT_EQ(a.Update(Stock(14, "by a"), 1), btr::kSuccess);
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(4)), btr::kSuccess);
    EXPECT_EQ(b.record, Stock(4)) << "the sibling is untouched";

    // Current in key 1's order: Get Next and Get Previous go on from it.
    ASSERT_EQ(a.Get(btr::kGetNext, 1), btr::kSuccess);
    EXPECT_EQ(a.number(), 24);
    direct = position + std::string(60, '\0');
    ASSERT_EQ(a.file.Call(btr::kGetDirect, direct, key, 0), btr::kSuccess);
    EXPECT_EQ(a.Get(btr::kGetNext, 1), btr::kDifferentKeyNumber);
    ASSERT_EQ(a.Get(btr::kGetPrevious, 0), btr::kSuccess);
    EXPECT_EQ(a.number(), 12) << "key 0's order this time";

    // A deleted record's position holds nothing.
    ASSERT_EQ(b.Get(btr::kGetEqual, 0, SongNumber(14)), btr::kSuccess);
    ASSERT_EQ(b.Delete(), btr::kSuccess);
    direct = position + std::string(60, '\0');
    EXPECT_EQ(a.file.Call(btr::kGetDirect, direct, key, 1), btr::kInvalidPositioning);
    direct = position + std::string(60, '\0');
    EXPECT_EQ(a.file.Call(btr::kGetDirect, direct, key, 3), btr::kInvalidKeyNumber);
}

// A file on a network share (told by a mount table where the test's folder is an NFS mount):
// a rollback journal instead of WAL, whatever the file had, nothing shared in memory beside it,
// and one line for the log each time it is opened.
TEST(EngineNetworkShare, FilesOnANetworkShareUseARollbackJournal) {
    TempDir dir;
    const std::string local = dir.file("local.bt6"), shared = dir.file("shared.bt6");
    for (const std::string& path : {local, shared}) {
        ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
        FillStock(path);
    }
    ASSERT_EQ(JournalOf(shared), "wal") << "written while the folder was local";

    std::vector<std::string> notices;
    engine::SetEngineNotice([&](const std::string& line) { notices.push_back(line); });
    std::string mountInfo =
        "21 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "35 21 0:48 / " +
        dir.path().string() + " rw,relatime shared:9 - nfs4 nas:/export/kavella rw,vers=4.2\n";
    engine::SetFileSystemProbe([&](const std::string& path) {
        return path == local ? std::string("ext4")
                             : engine::FileSystemTypeInMountInfo(mountInfo, path);
    });
    struct Restore {
        ~Restore() {
            engine::SetEngineNotice(nullptr);
            engine::SetFileSystemProbe(nullptr);
        }
    } restore;

    {
        OtherProcess other(Writer(shared));
        SongFile f;
        ASSERT_EQ(f.Open(shared), btr::kSuccess);
        EXPECT_FALSE(fs::exists(shared + "-wal"));
        EXPECT_FALSE(fs::exists(shared + "-shm"));
        ASSERT_EQ(f.Get(btr::kGetFirst, 0), btr::kSuccess);
        ASSERT_EQ(f.Get(btr::kGetNext, 0), btr::kSuccess);
        // What another process commits shows at the next read here too.
        ASSERT_EQ(other.Run(20006), btr::kSuccess);
        ASSERT_EQ(other.Run(10008), btr::kSuccess);
        ASSERT_EQ(f.Get(btr::kGetNext, 0), btr::kSuccess);
        EXPECT_EQ(f.record, Stock(6, "changed"));
        ASSERT_EQ(f.Get(btr::kGetNext, 0), btr::kSuccess);
        EXPECT_EQ(f.number(), 10);
        ASSERT_EQ(f.Update(Stock(10, "here")), btr::kSuccess);
        EXPECT_FALSE(fs::exists(shared + "-wal"));
    }
    EXPECT_EQ(JournalOf(shared), "delete");
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0], "File: " + shared +
                              " |On a network file system (nfs4): rollback journal instead of WAL");

    // A bulk load on the share ends in the rollback journal too; the local file keeps WAL.
    const std::string copy = dir.file("copy.btr");
    ASSERT_EQ(EngineFile::Create(copy, SongFileBuf()), btr::kSuccess);
    {
        SongFile from, to;
        ASSERT_EQ(from.Open(local, btr::kOpenReadOnly), btr::kSuccess);
        ASSERT_EQ(to.Open(copy, btr::kOpenAccelerated), btr::kSuccess);
        for (int16_t s = from.Get(btr::kGetFirst, 0); s == btr::kSuccess;
             s = from.Get(btr::kGetNext, 0))
            ASSERT_EQ(to.Insert(from.record), btr::kSuccess);
    }
    EXPECT_EQ(JournalOf(copy), "delete");
    EXPECT_EQ(JournalOf(local), "wal");
    EXPECT_EQ(notices.size(), 2u);
    EXPECT_EQ(testing::Listing(dir.path()),
              (std::vector<std::string>{"copy.btr", "local.bt6", "shared.bt6"}));
}

TEST(EngineFileSystems, TheMountTableTellsWhichFileSystemHoldsAPath) {
    const std::string mountInfo =
        "22 1 253:0 / / rw,relatime shared:1 - ext4 /dev/mapper/root rw\n"
        "30 22 0:26 / /mnt rw shared:5 - tmpfs tmpfs rw\n"
        "41 30 0:50 / /mnt/data rw,relatime shared:20 master:3 - nfs4 nas:/data rw,vers=4.2\n"
        "42 30 0:51 /share /mnt/Kavella\\040Data rw - cifs //nas/Kavella rw,vers=3.0\n"
        "43 22 0:52 / /home/radio/net rw,nosuid - fuse.sshfs radio@nas:/ rw\n"
        "44 22 0:53 / /home/radio/net rw - ext4 /dev/sdb1 rw\n"
        "garbage line without the separator\n";
    auto type = [&](const std::string& path) {
        return engine::FileSystemTypeInMountInfo(mountInfo, path);
    };
    EXPECT_EQ(type("/home/radio/Kavella/FRAD003.bt6"), "ext4");
    EXPECT_EQ(type("/mnt/data/Base1/FRADB22.bt6"), "nfs4");
    EXPECT_EQ(type("/mnt/database/FRADB22.bt6"), "tmpfs") << "whole components only";
    EXPECT_EQ(type("/mnt/data"), "nfs4");
    EXPECT_EQ(type("/mnt/Kavella Data/Base1/FRAD003.btr"), "cifs") << "blank written \\040";
    EXPECT_EQ(type("/home/radio/net/FRAD003.bt6"), "ext4") << "the mount listed last hides";
    EXPECT_EQ(engine::FileSystemTypeInMountInfo("", "/x"), "");

    for (const char* network : {"nfs", "nfs4", "cifs", "smb3", "fuse.sshfs", "fuseblk", "9p"})
        EXPECT_TRUE(engine::IsNetworkFileSystem(network)) << network;
    for (const char* local : {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "", "nfsd"})
        EXPECT_FALSE(engine::IsNetworkFileSystem(local)) << local;
    EXPECT_FALSE(engine::SystemFileSystemType(fs::current_path().string()).empty());
}

}  // namespace
}  // namespace toverin
