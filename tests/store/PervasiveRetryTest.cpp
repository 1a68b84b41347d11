// BTRieve against a scripted engine: which statuses are retried, waited out, reported or kept
// quiet, and what the user's answer to a report does.
#include <gtest/gtest.h>

#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "tests/store/PervasiveTestSupport.h"
#include "tests/store/ScriptedEngine.h"

namespace toverin::testing {
namespace {

using namespace btr;

class ScriptedAccess : public AccessLayerTest {
  protected:
    void SetUp() override {
        AccessLayerTest::SetUp();
        for (int station : {1, 2}) {
            for (int file : {22, 34, 35}) Open(file, station);
        }
        engine.ClearCalls();
    }

    void Open(int file, int station) {
        std::string path = dir.file(StationFileName(file, station));
        WriteFile(path, "scripted");
        ASSERT_EQ(bank.OuvertureFichierBTrieve(0, file, path, 0, station, kOpenNormal), kSuccess);
    }

    int16_t Call(uint16_t operation, int file = 22, int keyNumber = 0, int station = 1) {
        bank.BTRieve(0, operation, data, key, keyNumber, file, station, "Test:Lib_Test");
        return bank.LastStatus();
    }

    ScriptedEngine engine;
    std::string data;
    std::string key;
};

const std::string kPosition("\x07\x01\x00\x00", 4);

TEST_F(ScriptedAccess, ConflictsAreReReadByUniqueKeyAndPositionThenGivenUpSilently) {
    // An update on file 22 (key 0 unique) made on key 5, that keeps meeting another
    // workstation's changes. The position of the record is taken once, at the first conflict;
    // each retry follows a half-second wait, a Get Equal on the unique key with the value the
    // caller's record carries, and a Get Direct on that position, current on key 5 again. The
    // eleventh conflict gives up with -1.
    engine.Queue(kUpdate, kConflict, 11);
    engine.QueueRecord(kGetPosition, kSuccess, kPosition);
    engine.QueueRecord(kGetEqual, kSuccess, std::string(900, 'R'));
    data = "00000042" + std::string(892, 'U');
    key = "TITLE";
    EXPECT_EQ(Call(kUpdate, 22, 5), -1);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());
    ASSERT_EQ(engine.calls.size(), 11u + 1u + 10u * 2u);
    EXPECT_EQ(engine.calls[1].operation, kGetPosition);
    EXPECT_EQ(engine.calls[1].keyNumber, 5);
    for (size_t i = 2; i < engine.calls.size(); ++i) {
        const EngineCall& c = engine.calls[i];
        SCOPED_TRACE(i);
        switch ((i - 2) % 3) {
            case 0:
                EXPECT_EQ(c.operation, kGetEqual);
                EXPECT_EQ(c.keyNumber, 0);
                EXPECT_EQ(c.key.substr(0, 9), std::string("00000042\0", 9));
                break;
            case 1:
                EXPECT_EQ(c.operation, kGetDirect);
                EXPECT_EQ(c.keyNumber, 5);
                EXPECT_EQ(c.data.substr(0, 4), kPosition);
                break;
            case 2:
                EXPECT_EQ(c.operation, kUpdate);
                EXPECT_EQ(c.data, data);
                break;
        }
    }
    // The re-reads replaced neither the caller's record nor its key.
    EXPECT_EQ(data, "00000042" + std::string(892, 'U'));
    EXPECT_EQ(key.substr(0, 5), "TITLE");
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(10 * 500));

    // A read that meets a conflict is only repeated.
    engine.ClearCalls();
    engine.Queue(kGetGreater, kConflict, 1);
    EXPECT_EQ(Call(kGetGreater), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{8, 8}));
}

TEST_F(ScriptedAccess, OnAFileWhoseKeysAllAllowDuplicatesThePositionTellsTheRecord) {
    // File 34: a delete on key 0 made with the key of its read, then an update made by a caller
    // that kept no key (the record names itself).
    engine.Queue(kDelete, kConflict, 2);
    engine.QueueRecord(kGetPosition, kSuccess, kPosition);
    data = std::string(300, 'D');
    key = "20260317000000";
    EXPECT_EQ(Call(kDelete, 34), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{4, 22, 5, 23, 4, 5, 23, 4}));
    EXPECT_EQ(engine.calls[2].key.substr(0, 14), "20260317000000");
    EXPECT_EQ(engine.calls[3].data.substr(0, 4), kPosition);

    engine.ClearCalls();
    engine.Queue(kUpdate, kConflict, 1);
    engine.QueueRecord(kGetPosition, kSuccess, kPosition);
    data = BlankRecord(34);
    data.replace(0, 14, "20260318121500");
    key.clear();
    EXPECT_EQ(Call(kUpdate, 34), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 22, 5, 23, 3}));
    EXPECT_EQ(engine.calls[2].key.substr(0, 14), KeyOf(34, 0, data));

    // An engine that cannot give the position: a unique key still names the record...
    engine.ClearCalls();
    engine.Queue(kUpdate, kConflict, 1);
    engine.Queue(kGetPosition, kInvalidOperation);
    data = "00000042" + std::string(892, 'U');
    EXPECT_EQ(Call(kUpdate, 22, 5), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 22, 5, 3}));
    EXPECT_EQ(engine.calls[2].keyNumber, 0);

    // ... but among siblings the write is given up at once rather than risk another record.
    engine.ClearCalls();
    engine.Queue(kUpdate, kConflict, 1);
    engine.Queue(kGetPosition, kInvalidOperation);
    const Milliseconds before = clock->TotalSlept();
    EXPECT_EQ(Call(kUpdate, 34), -1);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 22}));
    EXPECT_EQ(clock->TotalSlept(), before);
    EXPECT_TRUE(
        Logged("Err: BTrieve: file 34: a record changed by another user cannot be told "
               "from its siblings |Write given up (Test:Lib_Test)"));
    EXPECT_TRUE(dialogs.messages.empty());

    // 54 on a write is reported, then handled as a conflict.
    engine.ClearCalls();
    engine.Queue(kUpdate, 54, 1);
    engine.QueueRecord(kGetPosition, kSuccess, kPosition);
    dialogs.QueueAnswer(MsgAnswer::Ignore);
    EXPECT_EQ(Call(kUpdate, 34), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 22, 5, 23, 3}));
    EXPECT_EQ(dialogs.messages.size(), 1u);
}

// One row per rule of the guarded call: what the engine answers, what the user answers, and
// what comes of it.
struct StatusCase {
    const char* rule;
    uint16_t operation;
    int file = 22;
    std::vector<int16_t> replies = {};    // the engine's answers to the operation, then success
    std::vector<int16_t> reReads = {};    // its answers to the re-reads by key (Get Equal)
    std::vector<MsgAnswer> answers = {};  // the user's, in order; then the unattended answer
    bool quiet = false;
    bool automatic = false;
    int16_t status = 0;  // left in the last status
    size_t calls = 1;    // engine calls
    size_t boxes = 0;
    size_t ends = 0;
    int sleptMs = 0;
    std::vector<uint16_t> operations = {};  // when given, the calls' operations in order
};

std::vector<int16_t> Times(int n, int16_t status) {
    return std::vector<int16_t>(static_cast<size_t>(n), status);
}

const std::vector<StatusCase>& StatusCases() {
    using A = MsgAnswer;
    // clang-format off
    static const std::vector<StatusCase> cases = {
        {.rule = "0 is success", .operation = kGetEqual},
        // 7, the key number changed.
        {.rule = "7 on an update of file 35 is success",
         .operation = kUpdate, .file = 35, .replies = {7}},
        {.rule = "7 on a Get Next of file 34 is success",
         .operation = kGetNext, .file = 34, .replies = {7}},
        {.rule = "7 on a Get Previous of file 34 is success",
         .operation = kGetPrevious, .file = 34, .replies = {7}},
        {.rule = "7 elsewhere is reported and Retry repeats the call",
         .operation = kUpdate, .replies = {7}, .answers = {A::Retry}, .calls = 2, .boxes = 1},
        {.rule = "7 elsewhere: Ignore repeats the call too",
         .operation = kInsert, .file = 34, .replies = {7, 7}, .answers = {A::Ignore, A::Ignore},
         .calls = 3, .boxes = 2},
        {.rule = "7 elsewhere: Abort ends the program",
         .operation = kUpdate, .replies = {7}, .answers = {A::Abort}, .status = 7, .boxes = 1,
         .ends = 1},
        {.rule = "7 on a Get Next: a re-read by key that succeeds is the call's success",
         .operation = kGetNext, .replies = {7}, .reReads = {0}, .calls = 2,
         .operations = {kGetNext, kGetEqual}},
        {.rule = "7 on a Get Previous whose re-read fails is reported; Ignore repeats",
         .operation = kGetPrevious, .replies = {7}, .reReads = {4}, .answers = {A::Ignore},
         .calls = 3, .boxes = 1, .operations = {kGetPrevious, kGetEqual, kGetPrevious}},
        {.rule = "7 on a Get Next whose re-read fails: Abort ends the program",
         .operation = kGetNext, .replies = {7}, .reReads = {4}, .answers = {A::Abort},
         .status = 7, .calls = 2, .boxes = 1, .ends = 1},
        {.rule = "7 is reported within the retries, the quiet flag or not",
         .operation = kUpdate, .replies = {7}, .answers = {A::Ignore}, .quiet = true, .calls = 2,
         .boxes = 1},
        // Transaction statuses.
        {.rule = "transaction statuses are waited out a second at a time, ten times silently",
         .operation = kInsert, .replies = {36, 37, 38, 39, 83, 92, 36, 37, 38, 39}, .calls = 11,
         .sleptMs = 10000},
        {.rule = "transaction statuses: from the eleventh retry each is reported, and Retry and "
                 "Ignore wait and repeat",
         .operation = kInsert, .replies = Times(12, 92), .answers = {A::Retry, A::Ignore},
         .calls = 13, .boxes = 2, .sleptMs = 12000},
        {.rule = "transaction statuses: Abort ends the program",
         .operation = kDelete, .replies = Times(11, 83), .answers = {A::Abort}, .status = 83,
         .calls = 11, .boxes = 1, .ends = 1, .sleptMs = 10000},
        // 54.
        {.rule = "54 on an update of file 35 is success",
         .operation = kUpdate, .file = 35, .replies = {54}},
        {.rule = "54 elsewhere is reported, then waited and repeated as a conflict on Ignore",
         .operation = kGetEqual, .replies = {54}, .answers = {A::Ignore}, .calls = 2, .boxes = 1,
         .sleptMs = 500},
        {.rule = "54 elsewhere: Retry does the same",
         .operation = kGetGreater, .replies = {54}, .answers = {A::Retry}, .calls = 2,
         .boxes = 1, .sleptMs = 500},
        {.rule = "54 elsewhere: Abort ends the program",
         .operation = kGetEqual, .replies = {54}, .answers = {A::Abort}, .status = 54,
         .boxes = 1, .ends = 1},
        {.rule = "54 with the quiet flag is a conflict, without a report",
         .operation = kGetEqual, .replies = {54}, .quiet = true, .calls = 2, .sleptMs = 500},
        // 80.
        {.rule = "80 is waited half a second and repeated, silently",
         .operation = kGetGreater, .replies = {80, 80}, .calls = 3, .sleptMs = 1000},
        {.rule = "80: the eleventh conflict gives up with -1, silently",
         .operation = kGetGreater, .replies = Times(11, 80), .status = -1, .calls = 11,
         .sleptMs = 5000},
        // Locks.
        {.rule = "locks are waited out a second at a time, ten times silently",
         .operation = kGetEqual, .replies = {81, 84, 85, 84, 84, 84, 84, 84, 84, 84},
         .calls = 11, .sleptMs = 10000},
        {.rule = "locks: from the eleventh retry each is reported, and Retry and Ignore wait and "
                 "repeat",
         .operation = kGetEqual, .replies = Times(13, 84),
         .answers = {A::Retry, A::Ignore, A::Ignore}, .calls = 14, .boxes = 3,
         .sleptMs = 13000},
        {.rule = "locks: Abort ends the program",
         .operation = kInsert, .replies = Times(11, 85), .answers = {A::Abort}, .status = 85,
         .calls = 11, .boxes = 1, .ends = 1, .sleptMs = 10000},
        {.rule = "locks: Cancel ends the program as Abort does",
         .operation = kUpdate, .replies = Times(11, 81), .answers = {A::Cancel}, .status = 81,
         .calls = 11, .boxes = 1, .ends = 1, .sleptMs = 10000},
        {.rule = "locks are reported from the eleventh retry, the quiet flag or not",
         .operation = kGetEqual, .replies = Times(11, 84), .answers = {A::Ignore}, .quiet = true,
         .calls = 12, .boxes = 1, .sleptMs = 11000},
        {.rule = "one retry count for the whole call: six locks and five conflicts give up as "
                 "conflicts do",
         .operation = kGetEqual, .replies = {84, 84, 84, 84, 84, 84, 80, 80, 80, 80, 80},
         .status = -1, .calls = 11, .sleptMs = 6 * 1000 + 4 * 500},
        // Every other status.
        {.rule = "another status is reported once: Retry does not repeat the call",
         .operation = kGetEqual, .replies = {2}, .answers = {A::Retry}, .status = 2,
         .boxes = 1},
        {.rule = "another status: Ignore gives up with it",
         .operation = kGetFirst, .replies = {2}, .answers = {A::Ignore}, .status = 2, .boxes = 1},
        {.rule = "another status: Abort ends the program",
         .operation = kGetLast, .replies = {2}, .answers = {A::Abort}, .status = 2, .boxes = 1,
         .ends = 1},
        {.rule = "another status: Cancel ends the program",
         .operation = kInsert, .replies = {18}, .answers = {A::Cancel}, .status = 18,
         .boxes = 1, .ends = 1},
        {.rule = "a duplicate key on an insert is the caller's to test",
         .operation = kInsert, .replies = {5}, .status = 5},
        {.rule = "a duplicate key on an update is the caller's to test",
         .operation = kUpdate, .replies = {5}, .status = 5},
        {.rule = "key not found on a read is the caller's to test",
         .operation = kGetEqual, .replies = {4}, .status = 4},
        {.rule = "a duplicate key on a read is the caller's to test",
         .operation = kGetGreaterOrEqual, .replies = {5}, .status = 5},
        {.rule = "end of file on a read is the caller's to test",
         .operation = kGetNext, .replies = {9}, .status = 9},
        {.rule = "key not found on a delete is the caller's to test",
         .operation = kDelete, .replies = {4}, .status = 4},
        {.rule = "key not found on an insert is reported",
         .operation = kInsert, .replies = {4}, .answers = {A::Ignore}, .status = 4, .boxes = 1},
        {.rule = "end of file on an update is reported",
         .operation = kUpdate, .replies = {9}, .answers = {A::Ignore}, .status = 9, .boxes = 1},
        {.rule = "the quiet flag silences the other statuses",
         .operation = kInsert, .replies = {2}, .quiet = true, .status = 2},
        // Nobody to answer.
        {.rule = "unattended, a report ends the program",
         .operation = kGetEqual, .replies = {2}, .automatic = true, .status = 2, .ends = 1},
        {.rule = "unattended, a lock reported at the eleventh retry ends the program",
         .operation = kGetEqual, .replies = Times(11, 84), .automatic = true, .status = 84,
         .calls = 11, .ends = 1, .sleptMs = 10000},
        {.rule = "with nobody at the box, a report that would repeat the call ends the program",
         .operation = kUpdate, .replies = {7}, .status = 7, .boxes = 1, .ends = 1},
        {.rule = "with nobody at the box, a report of a call that stops lets it stop",
         .operation = kGetEqual, .replies = {2}, .status = 2, .boxes = 1},
    };
    // clang-format on
    return cases;
}

TEST_F(ScriptedAccess, TheGuardedCallDecidesByStatus) {
    for (const StatusCase& c : StatusCases()) {
        SCOPED_TRACE(c.rule);
        engine.script.clear();
        engine.ClearCalls();
        dialogs.messages.clear();
        dialogs.answers.clear();
        ends.clear();
        for (int16_t status : c.replies) engine.Queue(c.operation, status);
        for (int16_t status : c.reReads) engine.Queue(kGetEqual, status);
        for (MsgAnswer answer : c.answers) dialogs.QueueAnswer(answer);
        bank.setQuiet(c.quiet);
        AutomaticMode() = c.automatic;
        const Milliseconds before = clock->TotalSlept();
        data.clear();
        key = "00000042";

        EXPECT_EQ(Call(c.operation, c.file, 3), c.status);
        EXPECT_EQ(engine.calls.size(), c.calls);
        EXPECT_EQ(dialogs.messages.size(), c.boxes);
        EXPECT_TRUE(dialogs.answers.empty()) << "answers left unasked";
        EXPECT_EQ(ends.size(), c.ends);
        EXPECT_EQ(clock->TotalSlept() - before, Milliseconds(c.sleptMs));
        if (!c.operations.empty()) {
            EXPECT_EQ(engine.Operations(), c.operations);
        }
        for (const EngineCall& call : engine.calls) EXPECT_EQ(call.keyNumber, 3);
        for (const MsgRequest& box : dialogs.messages) {
            EXPECT_EQ(box.buttons, MsgButtons::AbortRetryIgnore);
            EXPECT_EQ(box.icon, MsgIcon::Critical);
        }
        if (c.automatic) {
            EXPECT_TRUE(Logged("Err: "));
        }
    }
    bank.setQuiet(false);
    AutomaticMode() = false;
}

TEST_F(ScriptedAccess, TheReReadOfAChangedKeyNumberUsesTheCallsKey) {
    engine.Queue(kGetNext, kDifferentKeyNumber);
    engine.QueueRecord(kGetEqual, kSuccess, std::string(900, 'E'));
    key = "00000042";
    EXPECT_EQ(Call(kGetNext, 22, 2), kSuccess);
    ASSERT_EQ(engine.calls.size(), 2u);
    EXPECT_EQ(engine.calls[1].keyNumber, 2);
    EXPECT_EQ(engine.calls[1].key.substr(0, 8), "00000042");
    EXPECT_EQ(data, std::string(900, 'E'));  // the re-read's record is the call's
}

TEST_F(ScriptedAccess, ABrowsingBankHearsOfEveryFailureThroughTheStatusAlone) {
    // The data viewer reading a damaged file, unattended or not: nothing is shown, nothing
    // ends, every status comes back.
    ScopedBrowsing browsing(bank);
    for (bool automatic : {false, true}) {
        AutomaticMode() = automatic;
        engine.Queue(kGetEqual, kIoError);
        EXPECT_EQ(Call(kGetEqual), kIoError);
        engine.Queue(kGetGreater, kNotARecordFile);
        EXPECT_EQ(Call(kGetGreater), kNotARecordFile);
        engine.Queue(kInsert, kDiskFull);
        EXPECT_EQ(Call(kInsert), kDiskFull);
    }
    AutomaticMode() = false;

    // A Get Next whose key number changed and whose re-read fails comes back as 7, once.
    engine.ClearCalls();
    engine.Queue(kGetNext, kDifferentKeyNumber);
    engine.Queue(kGetEqual, kKeyNotFound);
    EXPECT_EQ(Call(kGetNext), kDifferentKeyNumber);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{6, 5}));

    // Locks are waited out as for anybody, then given up where the user would be asked.
    engine.ClearCalls();
    engine.Queue(kGetFirst, kRecordLocked, 20);
    EXPECT_EQ(Call(kGetFirst), kRecordLocked);
    EXPECT_EQ(engine.calls.size(), 11u);
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(10 * 1000));
    engine.script.clear();

    // 54 is retried as a conflict, without a word.
    engine.ClearCalls();
    engine.Queue(kGetEqual, 54);
    EXPECT_EQ(Call(kGetEqual), kSuccess);
    EXPECT_EQ(engine.calls.size(), 2u);

    // A file that is not open: status 3, the fault logged, the program going on.
    engine.ClearCalls();
    EXPECT_EQ(Call(kGetFirst, 23), kFileNotOpen);
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_TRUE(Logged("Err: 2003"));

    // An open that fails is the caller's to tell.
    std::string path = dir.file("FRADA23.bt6");
    WriteFile(path, "x");
    engine.Queue(kOpen, kAccessDenied);
    EXPECT_EQ(bank.OuvertureFichierBTrieve(0, 23, path, 0, 1, kOpenNormal), kAccessDenied);
    EXPECT_FALSE(bank.IsFileOpen(0, 23, 1));
    EXPECT_EQ(bank.OuvertureFichierBTrieve(0, 24, dir.file("FRADA24.bt6"), 0, 1, kOpenNormal),
              kFileNotFound);

    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());
    EXPECT_FALSE(Logged("Unable to open"));
    EXPECT_FALSE(Logged("Err: 2: The application encountered an I/O error"));

    // Out of browsing, the bank reports again.
    bank.setBrowsing(false);
    engine.Queue(kGetEqual, kIoError);
    Call(kGetEqual);
    EXPECT_EQ(dialogs.messages.size(), 1u);
}

TEST_F(ScriptedAccess, StationsOutsideTheRangeAndUnopenedFiles) {
    // Clear of the error hook's repeat window, which other tests' station 11 may have opened.
    clock->Advance(Milliseconds(3600000));
    EXPECT_EQ(Call(kGetEqual, 22, 0, 11), kKeyNotFound);
    EXPECT_EQ(Call(kGetNext, 22, 0, 11), kEndOfFile);
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_TRUE(ends.empty());
    EXPECT_TRUE(Logged("Source: BTrieve (Test:Lib_Test)"));

    // Station 0 is station 1.
    EXPECT_EQ(Call(kGetFirst, 22, 0, 0), kSuccess);
    EXPECT_EQ(engine.calls.size(), 1u);

    // File 23 was never opened: the call ends the program without reaching the engine.
    engine.ClearCalls();
    Call(kGetEqual, 23);
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_EQ(ends.size(), 1u);
    EXPECT_EQ(bank.LastStatus(), kFileNotOpen);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find("Err: 3: The file is not open\n>1File:23 "),
              std::string::npos);
    EXPECT_TRUE(Logged("Err: 2003 |File not open: " + DataFilePath(0, 23, 1)));
}

TEST_F(ScriptedAccess, AutomaticModeLogsAndEndsInsteadOfAsking) {
    AutomaticMode() = true;
    engine.Queue(kGetEqual, kIoError);
    EXPECT_EQ(Call(kGetEqual), kIoError);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_EQ(ends.size(), 1u);
    EXPECT_EQ(engine.calls.size(), 1u);
    EXPECT_TRUE(Logged("Err: 2: The application encountered an I/O error"));

    // Unopened file: one end, not two.
    ends.clear();
    Call(kGetEqual, 23);
    EXPECT_EQ(ends.size(), 1u);
}

TEST_F(ScriptedAccess, BuffersAreSizedToTheRecordAndTheKeyIsLoweredForReadsBelow) {
    // An empty buffer becomes blanks of the file's record length; the engine's length comes back.
    engine.QueueRecord(kGetFirst, kSuccess, "short");
    Call(kGetFirst);
    ASSERT_EQ(engine.calls.size(), 1u);
    EXPECT_EQ(engine.calls[0].dataLength, CatalogueEntryFor(22).recordLength);
    EXPECT_EQ(engine.calls[0].data, std::string(900, ' '));
    EXPECT_EQ(data, "short");
    EXPECT_EQ(key.size(), 8u);  // as long as key 0

    for (uint16_t operation : {kGetLessThan, kGetLessOrEqual, kGetGreater}) {
        engine.ClearCalls();
        key = "2026\xff\xff\xff\xff";
        Call(operation);
        std::string expected = operation == kGetGreater ? "2026\xff\xff\xff\xff" : "2026zzzz";
        EXPECT_EQ(engine.calls[0].key.substr(0, 8), expected) << operation;
        EXPECT_EQ(engine.calls[0].key.size(), 255u);
    }

    // Values read on a key flagged for it come back upper-cased, when the site wants it.
    UpperCaseEnabled() = true;
    UpperCaseKey(0, 22, 5) = true;
    engine.QueueRecord(kGetFirst, kSuccess, "abc\xe9");
    Call(kGetFirst, 22, 5);
    EXPECT_EQ(data, "ABC\xc9");
    engine.QueueRecord(kGetFirst, kSuccess, "abc");
    Call(kGetFirst, 22, 0);
    EXPECT_EQ(data, "abc");
}

}  // namespace
}  // namespace toverin::testing
