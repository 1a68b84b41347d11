// A read-only open (a check, a dump, the source of a backup or a restore) leaves the file as it
// found it: no index built, no log or journal left beside it, not a byte changed, even when the
// file needs the indexes a bulk load put off. And it still sees what others write.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using engine::EngineFile;
using testing::IndexNames;
using testing::Listing;
using testing::OtherProcess;
using testing::Padded;
using testing::ReadFile;
using testing::Song;
using testing::SongFile;
using testing::SongFileBuf;
using testing::SongNumber;
using testing::TempDir;

// Song n: titles repeat in several cases, station + date too.
std::string Loaded(int n, const std::string& note = "") {
    static const char* titles[] = {"Soleil", "nuit", "SOLEIL", "Amour", "soleil", "Zebre", "amour"};
    return Song(n * 3, titles[n * 5 % 7], n % 2 ? "01" : "02",
                "2026010" + std::to_string(n % 4 + 1), note);
}

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

// What searches by key 1 find and read on to, one line each.
std::vector<std::string> TitleSearches(SongFile& f) {
    std::vector<std::string> found;
    for (uint16_t operation : {btr::kGetEqual, btr::kGetGreater, btr::kGetGreaterOrEqual,
                               btr::kGetLessThan, btr::kGetLessOrEqual}) {
        bool forward = operation != btr::kGetLessThan && operation != btr::kGetLessOrEqual;
        for (const char* title : {"AMOUR", "NUIT", "SOLEI", "SOLEIL", "ZEBRE", "ZZ"}) {
            std::string line = std::to_string(operation) + " " + title + ":";
            int16_t status = f.Get(operation, 1, Padded(title, 20));
            for (int i = 0; i < 3 && status == btr::kSuccess; ++i) {
                line += " " + std::to_string(f.number());
                status = f.Get(forward ? btr::kGetNext : btr::kGetPrevious, 1);
            }
            found.push_back(line + " then " + std::to_string(status));
        }
    }
    return found;
}

class EngineReadOnly : public ::testing::Test {
  protected:
    void SetUp() override {
        normal = dir.file("normal.bt6");
        bulk = dir.file("FRADA22.btr");
        for (const std::string& path : {normal, bulk}) {
            ASSERT_EQ(EngineFile::Create(path, SongFileBuf()), btr::kSuccess);
            engine::SetSyncedWrites(false);
            SongFile f;
            ASSERT_EQ(f.Open(path, path == bulk ? btr::kOpenAccelerated : btr::kOpenNormal),
                      btr::kSuccess);
            for (int n = 1; n <= kSongs; ++n) ASSERT_EQ(f.Insert(Loaded(n)), btr::kSuccess);
            engine::SetSyncedWrites(true);
        }
        ASSERT_EQ(IndexNames(bulk), "") << "a backup's copy, its indexes put off";
    }
    static constexpr int kSongs = 300;
    TempDir dir;
    std::string normal, bulk;
};

TEST_F(EngineReadOnly, AFileWaitingForItsIndexesIsReadByEveryKeyAndLeftAsItWas) {
    const std::string bytes = ReadFile(bulk), normalBytes = ReadFile(normal);
    const std::vector<std::string> listing = Listing(dir.path());
    {
        SongFile a, b;
        ASSERT_EQ(a.Open(normal, btr::kOpenReadOnly), btr::kSuccess);
        ASSERT_EQ(b.Open(bulk, btr::kOpenReadOnly), btr::kSuccess);
        for (int8_t key : {0, 1, 2}) {
            SCOPED_TRACE(::testing::Message() << "key " << int(key));
            std::vector<std::string> forward = WalkAll(a, key, true);
            ASSERT_EQ(forward.size(), static_cast<size_t>(kSongs));
            EXPECT_EQ(WalkAll(b, key, true), forward);
            EXPECT_EQ(WalkAll(b, key, false), WalkAll(a, key, false));
        }
        EXPECT_EQ(TitleSearches(b), TitleSearches(a));
        btr::PbTBtrFileBuf stat{};
        ASSERT_EQ(b.file.Stat(stat), btr::kSuccess);
        EXPECT_EQ(uint32_t{stat.RecordCount}, static_cast<uint32_t>(kSongs));
        EXPECT_EQ(b.Insert(Loaded(kSongs + 1)), btr::kAccessDenied);
    }
    EXPECT_EQ(ReadFile(bulk), bytes) << "not a byte changed";
    EXPECT_EQ(ReadFile(normal), normalBytes);
    EXPECT_EQ(Listing(dir.path()), listing) << "no log, index or journal left beside them";
    EXPECT_EQ(engine::IntegrityReport(bulk), "ok");
    EXPECT_EQ(ReadFile(bulk), bytes);
    EXPECT_EQ(Listing(dir.path()), listing);
    EXPECT_EQ(IndexNames(bulk), "");
}

// Another process has the file open and writes: the read-only reader sees its writes, and
// leaves its log alone when closing; so too the log of a process that ended without closing
// (a crash), which only a reader that may write folds into the file.
TEST_F(EngineReadOnly, TheLogOfAnotherProcessIsLeftWhereItIs) {
    auto file = std::make_shared<SongFile>();
    OtherProcess other([this, file](int step) {
        if (step == 99) _exit(0);  // ends without closing anything
        if (!file->file.isOpen() && file->Open(normal) != btr::kSuccess) return -1;
        return int{file->Insert(Loaded(1000 + step))};
    });
    ASSERT_EQ(other.Run(1), btr::kSuccess);
    ASSERT_TRUE(fs::exists(normal + "-wal"));
    {
        SongFile reader;
        ASSERT_EQ(reader.Open(normal, btr::kOpenReadOnly), btr::kSuccess);
        ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(reader.record, Loaded(1001));
        ASSERT_EQ(other.Run(2), btr::kSuccess);
        ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(reader.record, Loaded(1002));
    }
    EXPECT_TRUE(fs::exists(normal + "-wal"));
    EXPECT_TRUE(fs::exists(normal + "-shm"));
    ASSERT_EQ(other.Run(2), btr::kDuplicateKey) << "the other process goes on as before";
    other.Run(99);

    const std::string bytes = ReadFile(normal), log = ReadFile(normal + "-wal");
    ASSERT_FALSE(log.empty());
    {
        SongFile reader;
        ASSERT_EQ(reader.Open(normal, btr::kOpenReadOnly), btr::kSuccess);
        ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(reader.record, Loaded(1002));
    }
    EXPECT_EQ(ReadFile(normal), bytes);
    EXPECT_EQ(ReadFile(normal + "-wal"), log);
    {
        SongFile writer;
        ASSERT_EQ(writer.Open(normal), btr::kSuccess);
        ASSERT_EQ(writer.Get(btr::kGetLast, 0), btr::kSuccess);
        EXPECT_EQ(writer.record, Loaded(1002));
    }
    EXPECT_FALSE(fs::exists(normal + "-wal")) << "folded in by a reader that may write";
}

// Without the index of key 1, the reader works from a copy of its values; what another process
// writes afterwards, in a bulk load that leaves the indexes waiting or in normal mode that
// builds them, shows at the next read.
TEST_F(EngineReadOnly, ReadsWithoutTheIndexFollowWhatOthersWrite) {
    auto file = std::make_shared<SongFile>();
    OtherProcess other([this, file](int step) {
        SongFile& f = *file;
        if (!f.file.isOpen()) {
            int16_t opened = f.Open(bulk, step < 10 ? btr::kOpenAccelerated : btr::kOpenNormal);
            if (opened != btr::kSuccess) return -100 - opened;
        }
        // Numbers above every loaded one, so that the bulk load keeps key 0's order.
        int16_t status = f.Insert(Song(900 + step, step < 10 ? "Aaa bulk" : "Aaa normal"));
        if (status == btr::kSuccess && (step == 1 || step == 10)) f.file.Close();
        return int{status};
    });
    SongFile reader;
    ASSERT_EQ(reader.Open(bulk, btr::kOpenReadOnly), btr::kSuccess);
    ASSERT_EQ(reader.Get(btr::kGetFirst, 1), btr::kSuccess);
    const std::vector<std::string> before = WalkAll(reader, 1, true);

    ASSERT_EQ(other.Run(1), btr::kSuccess);
    ASSERT_EQ(IndexNames(bulk), "");
    std::vector<std::string> titles = WalkAll(reader, 1, true);
    ASSERT_EQ(titles.size(), before.size() + 1);
    EXPECT_EQ(titles.front(), Song(901, "Aaa bulk"));

    ASSERT_EQ(other.Run(10), btr::kSuccess);
    EXPECT_EQ(IndexNames(bulk), "records_k0 records_k1 records_k2") << "built by that writer";
    titles = WalkAll(reader, 1, true);
    ASSERT_EQ(titles.size(), before.size() + 2);
    EXPECT_EQ(titles[1], Song(910, "Aaa normal"));
    EXPECT_EQ(std::vector<std::string>(titles.begin() + 2, titles.end()), before);
    ASSERT_EQ(reader.Get(btr::kGetLast, 0), btr::kSuccess);
    EXPECT_EQ(reader.number(), 910);
}

}  // namespace
}  // namespace toverin
