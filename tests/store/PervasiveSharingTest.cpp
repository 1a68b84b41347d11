// The access layer and the engine with another process writing the same file: the other
// process is a child forked before this one opens anything, told when to act through a pipe.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "app/Text.h"
#include "store/RecordLayout.h"
#include "tests/store/PervasiveTestSupport.h"

namespace toverin::testing {
namespace {

using namespace btr;

// Another program of the suite: started before the test opens the file, it waits for its turn,
// runs `act` on a bank of its own and reports the status it ended with.
class OtherProcess {
  public:
    explicit OtherProcess(std::function<int16_t(SlotBank&)> act) {
        if (pipe(go_) != 0 || pipe(done_) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            close(go_[1]);
            close(done_[0]);
            char mark = 0;
            if (read(go_[0], &mark, 1) != 1) _exit(1);
            int16_t status;
            {
                SlotBank bank("Other");
                bank.setBrowsing(true);
                status = act(bank);
            }
            if (write(done_[1], &status, sizeof status) != sizeof status) _exit(2);
            _exit(0);
        }
        close(go_[0]);
        close(done_[1]);
    }
    ~OtherProcess() {
        if (pid_ > 0) {
            close(go_[1]);
            close(done_[0]);
            waitpid(pid_, nullptr, 0);
        }
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    bool started() const { return pid_ > 0; }
    // Lets it act and waits until it has; its status, or 999 when it died.
    int16_t Act() {
        char mark = 'g';
        if (write(go_[1], &mark, 1) != 1) return 999;
        int16_t status = 999;
        if (read(done_[0], &status, sizeof status) != sizeof status) return 999;
        return status;
    }

  private:
    pid_t pid_ = -1;
    int go_[2] = {-1, -1};
    int done_[2] = {-1, -1};
};

// File 23 (stacks of songs per subject): every key allows duplicates. Siblings share all their
// key values and differ in byte 80 only.
constexpr int kStacks = 23;
constexpr size_t kMark = 79;

std::string Stack(char mark) {
    std::string record = BlankRecord(kStacks);
    record.replace(0, 8, "SUJET001");
    record.replace(8, 11, "20260317A01");
    record.replace(50, 20, FixedWidth("TITRE", 20));
    record[kMark] = mark;
    return record;
}

// File 42: one unique key, bytes 1..20.
constexpr int kCommon = 42;

std::string Record42(const std::string& code, char mark) {
    std::string record = BlankRecord(kCommon);
    record.replace(0, 20, FixedWidth(code, 20));
    record[100] = mark;
    return record;
}

class SharedFiles : public AccessLayerTest {
  protected:
    // Creates `fileNumber` of station 1 with `records`, and closes it again.
    void Fill(int fileNumber, const std::vector<std::string>& records) {
        SlotBank writer("Writer");
        ASSERT_EQ(CreationFichierBTrieve(DataFilePath(0, fileNumber, 1), fileNumber), kSuccess);
        ASSERT_TRUE(writer.FichierPervasiveOuvrir(0, 1, 1, fileNumber));
        for (std::string record : records) {
            std::string k;
            writer.BTRieve(0, kInsert, record, k, 0, fileNumber, 1, "Fill");
            ASSERT_EQ(writer.LastStatus(), kSuccess);
        }
    }

    // Every record of the file in the order of key 0 (siblings in insertion order).
    std::vector<std::string> All(int fileNumber) {
        SlotBank reader("Reader");
        EXPECT_TRUE(reader.FichierPervasiveOuvrir(0, 1, 1, fileNumber));
        std::vector<std::string> records;
        std::string d, k;
        for (uint16_t op = kGetFirst;; op = kGetNext) {
            reader.BTRieve(0, op, d, k, 0, fileNumber, 1, "All");
            if (reader.LastStatus() != kSuccess) break;
            records.push_back(d);
        }
        return records;
    }

    int16_t Call(uint16_t operation, int fileNumber, std::string& data, std::string& key) {
        bank.BTRieve(0, operation, data, key, 0, fileNumber, 1, "Test:Lib_Test");
        return bank.LastStatus();
    }
};

TEST_F(SharedFiles, AConflictAmongSiblingsRewritesTheRecordThatWasReadAndNoOther) {
    Fill(kStacks, {Stack('1'), Stack('2'), Stack('3')});
    // The other program rewrites the second sibling while we hold it.
    OtherProcess other([](SlotBank& b) -> int16_t {
        if (!b.FichierPervasiveOuvrir(0, 1, 1, kStacks)) return b.LastStatus();
        std::string d, k = "SUJET001";
        b.BTRieve(0, kGetEqual, d, k, 0, kStacks, 1, "Other");
        b.BTRieve(0, kGetNext, d, k, 0, kStacks, 1, "Other");
        if (b.LastStatus() != kSuccess || d[kMark] != '2') return 900;
        d[kMark] = 'B';
        b.BTRieve(0, kUpdate, d, k, 0, kStacks, 1, "Other");
        return b.LastStatus();
    });
    ASSERT_TRUE(other.started());

    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kStacks));
    std::string data, key = "SUJET001";
    ASSERT_EQ(Call(kGetEqual, kStacks, data, key), kSuccess);
    ASSERT_EQ(Call(kGetNext, kStacks, data, key), kSuccess);
    ASSERT_EQ(data[kMark], '2');
    ASSERT_EQ(other.Act(), kSuccess);

    // Our rewrite meets the conflict, waits, reads the record again and goes through: on the
    // second sibling, not on the first one that its key value names.
    data[kMark] = 'A';
    EXPECT_EQ(Call(kUpdate, kStacks, data, key), kSuccess);
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(500));
    EXPECT_TRUE(dialogs.messages.empty());
    bank.FichierPervasiveFermer(0, 1, 1, kStacks);

    std::vector<std::string> records = All(kStacks);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0][kMark], '1');
    EXPECT_EQ(records[1][kMark], 'A');
    EXPECT_EQ(records[2][kMark], '3');
}

TEST_F(SharedFiles, ADeleteAfterAConflictAmongSiblingsDeletesTheRecordThatWasRead) {
    Fill(kStacks, {Stack('1'), Stack('2'), Stack('3')});
    OtherProcess other([](SlotBank& b) -> int16_t {
        if (!b.FichierPervasiveOuvrir(0, 1, 1, kStacks)) return b.LastStatus();
        std::string d, k = "SUJET001";
        b.BTRieve(0, kGetLast, d, k, 0, kStacks, 1, "Other");
        if (b.LastStatus() != kSuccess || d[kMark] != '3') return 900;
        d[kMark] = 'B';
        b.BTRieve(0, kUpdate, d, k, 0, kStacks, 1, "Other");
        return b.LastStatus();
    });
    ASSERT_TRUE(other.started());

    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kStacks));
    std::string data, key;
    ASSERT_EQ(Call(kGetLast, kStacks, data, key), kSuccess);
    ASSERT_EQ(other.Act(), kSuccess);
    EXPECT_EQ(Call(kDelete, kStacks, data, key), kSuccess);
    bank.FichierPervasiveFermer(0, 1, 1, kStacks);

    std::vector<std::string> records = All(kStacks);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0][kMark], '1');
    EXPECT_EQ(records[1][kMark], '2');
}

TEST_F(SharedFiles, AConflictOnARecordWhoseUniqueKeyTheCallerChangesNeverTouchesAnother) {
    Fill(kCommon, {Record42("0001", '1'), Record42("0002", '2'), Record42("0003", '3')});
    OtherProcess other([](SlotBank& b) -> int16_t {
        if (!b.FichierPervasiveOuvrir(0, 1, 1, kCommon)) return b.LastStatus();
        for (const char* code : {"0001", "0002"}) {
            std::string d, k = FixedWidth(code, 20);
            b.BTRieve(0, kGetEqual, d, k, 0, kCommon, 1, "Other");
            d[100] = 'B';
            b.BTRieve(0, kUpdate, d, k, 0, kCommon, 1, "Other");
            if (b.LastStatus() != kSuccess) return b.LastStatus();
        }
        return kSuccess;
    });
    ASSERT_TRUE(other.started());

    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    std::string first, second, key1 = FixedWidth("0001", 20), key2 = FixedWidth("0002", 20);
    SlotBank mine("Mine");
    ASSERT_TRUE(mine.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    ASSERT_EQ(Call(kGetEqual, kCommon, first, key1), kSuccess);
    mine.BTRieve(0, kGetEqual, second, key2, 0, kCommon, 1, "Mine");
    ASSERT_EQ(mine.LastStatus(), kSuccess);
    ASSERT_EQ(other.Act(), kSuccess);

    // 0001 renumbered 0009: its new value names nothing, the position finds it.
    first = Record42("0009", 'A');
    EXPECT_EQ(Call(kUpdate, kCommon, first, key1), kSuccess);
    // 0002 renumbered 0003: its new value names another record, which stays as it was; the
    // rewrite of 0002 is refused as a duplicate.
    second = Record42("0003", 'A');
    mine.BTRieve(0, kUpdate, second, key2, 0, kCommon, 1, "Mine");
    EXPECT_EQ(mine.LastStatus(), kDuplicateKey);
    mine.CloseAll();
    bank.FichierPervasiveFermer(0, 1, 1, kCommon);

    std::vector<std::string> records = All(kCommon);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].substr(0, 4) + records[0][100], "0002B");
    EXPECT_EQ(records[1].substr(0, 4) + records[1][100], "00033");
    EXPECT_EQ(records[2].substr(0, 4) + records[2][100], "0009A");
}

TEST_F(SharedFiles, AnUpdateAfterAGetEqualThatFoundNothingIsRefusedAndReported) {
    Fill(kCommon, {Record42("0001", '1'), Record42("0002", '2')});
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    std::string data, key = FixedWidth("0001", 20);
    ASSERT_EQ(Call(kGetEqual, kCommon, data, key), kSuccess);
    key = FixedWidth("0005", 20);
    EXPECT_EQ(Call(kGetEqual, kCommon, data, key), kKeyNotFound);  // silent
    EXPECT_TRUE(dialogs.messages.empty());

    // The record read before the failed search is no longer current: nothing is rewritten.
    data = Record42("0001", 'X');
    dialogs.QueueAnswer(MsgAnswer::Ignore);
    EXPECT_EQ(Call(kUpdate, kCommon, data, key), kInvalidPositioning);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find("Err: 8: The current positioning is invalid"),
              std::string::npos);
    bank.FichierPervasiveFermer(0, 1, 1, kCommon);
    std::vector<std::string> records = All(kCommon);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0][100], '1');
}

}  // namespace
}  // namespace toverin::testing
