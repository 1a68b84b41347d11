// BTRieve against a scripted engine: which statuses are retried, waited out, reported or kept
// quiet, and what the user's answer to a report does.
#include <gtest/gtest.h>

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

TEST_F(ScriptedAccess, ConflictsAreReReadAndRetriedThenGivenUpSilently) {
    // An update that keeps meeting another workstation's changes: each retry is preceded by a
    // half-second wait and a fresh read by key; the eleventh conflict gives up with -1.
    engine.Queue(kUpdate, kConflict, 11);
    engine.QueueRecord(kGetEqual, kSuccess, std::string(900, 'R'));
    data = std::string(900, 'U');
    key = "00000042";
    EXPECT_EQ(Call(kUpdate), -1);
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());
    ASSERT_EQ(engine.calls.size(), 21u);
    for (size_t i = 0; i < engine.calls.size(); ++i) {
        const EngineCall& c = engine.calls[i];
        EXPECT_EQ(c.operation, i % 2 == 0 ? kUpdate : kGetEqual) << i;
        if (c.operation == kUpdate) {
            EXPECT_EQ(c.data, std::string(900, 'U')) << i;
        } else {
            EXPECT_EQ(c.key.substr(0, 8), "00000042") << i;
        }
    }
    EXPECT_EQ(data, std::string(900, 'U'));  // the re-read did not replace the caller's record
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(10 * 500));

    // Two conflicts then success; a delete re-reads too, a read does not.
    engine.ClearCalls();
    engine.Queue(kDelete, kConflict, 2);
    EXPECT_EQ(Call(kDelete), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{4, 5, 4, 5, 4}));
    engine.ClearCalls();
    engine.Queue(kGetGreater, kConflict, 1);
    EXPECT_EQ(Call(kGetGreater), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{8, 8}));
}

TEST_F(ScriptedAccess, KeyNumberChangedCountsAsSuccessOnFiles34And35Only) {
    engine.Queue(kGetNext, kDifferentKeyNumber);
    EXPECT_EQ(Call(kGetNext, 34), kSuccess);
    engine.Queue(kGetPrevious, kDifferentKeyNumber);
    EXPECT_EQ(Call(kGetPrevious, 34), kSuccess);
    engine.Queue(kUpdate, kDifferentKeyNumber);
    EXPECT_EQ(Call(kUpdate, 35), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{6, 7, 3}));
    EXPECT_TRUE(dialogs.messages.empty());

    // Elsewhere a Get Next re-reads by key; that read's success ends the call.
    engine.ClearCalls();
    engine.Queue(kGetNext, kDifferentKeyNumber);
    EXPECT_EQ(Call(kGetNext, 22), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{6, 5}));
    EXPECT_TRUE(dialogs.messages.empty());

    // When the re-read fails too, the user is asked; Ignore leaves the 7.
    engine.ClearCalls();
    engine.Queue(kGetNext, kDifferentKeyNumber);
    engine.Queue(kGetEqual, kKeyNotFound);
    dialogs.QueueAnswer(MsgAnswer::Ignore);
    EXPECT_EQ(Call(kGetNext, 22), kDifferentKeyNumber);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{6, 5}));
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find("Err: 7: The key number has changed"),
              std::string::npos);

    // An update on another file is reported and repeated on Retry.
    engine.ClearCalls();
    engine.Queue(kUpdate, kDifferentKeyNumber);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    EXPECT_EQ(Call(kUpdate, 22), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 3}));
    EXPECT_EQ(dialogs.messages.size(), 2u);
}

TEST_F(ScriptedAccess, ExpectedOutcomesAreSilentAndTheQuietFlagSilencesTheRest) {
    struct Case {
        uint16_t operation;
        int16_t status;
    };
    for (Case c : {Case{kInsert, kDuplicateKey}, Case{kUpdate, kDuplicateKey},
                   Case{kGetEqual, kKeyNotFound}, Case{kGetNext, kEndOfFile},
                   Case{kGetGreaterOrEqual, kDuplicateKey}, Case{kDelete, kKeyNotFound}}) {
        engine.ClearCalls();
        engine.Queue(c.operation, c.status);
        EXPECT_EQ(Call(c.operation), c.status) << c.operation;
        EXPECT_EQ(engine.calls.size(), 1u) << c.operation;
    }
    EXPECT_TRUE(dialogs.messages.empty());

    bank.setQuiet(true);
    engine.Queue(kInsert, kIoError);
    EXPECT_EQ(Call(kInsert), kIoError);
    engine.Queue(kUpdate, 54);
    EXPECT_EQ(Call(kUpdate), kSuccess);  // re-read and retried as a conflict, without a word
    EXPECT_TRUE(dialogs.messages.empty());
}

TEST_F(ScriptedAccess, OtherFailuresAskAbortRetryIgnore) {
    // A key-not-found on an insert is no expected outcome; neither is end-of-file on an update.
    engine.Queue(kInsert, kKeyNotFound);
    engine.Queue(kUpdate, kEndOfFile);
    Call(kInsert);
    Call(kUpdate);
    ASSERT_EQ(dialogs.messages.size(), 2u);
    EXPECT_EQ(dialogs.messages[0].buttons, MsgButtons::AbortRetryIgnore);
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_EQ(bank.LastStatus(), kEndOfFile);  // no answer queued: the unattended Ignore

    // Retry repeats the call, as many times as the user asks.
    dialogs.messages.clear();
    engine.ClearCalls();
    engine.Queue(kGetEqual, kIoError, 2);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    EXPECT_EQ(Call(kGetEqual), kSuccess);
    EXPECT_EQ(engine.calls.size(), 3u);
    EXPECT_EQ(dialogs.messages.size(), 2u);
    EXPECT_TRUE(ends.empty());

    // Ignore gives up with the status.
    engine.ClearCalls();
    engine.Queue(kGetFirst, kIoError);
    dialogs.QueueAnswer(MsgAnswer::Ignore);
    EXPECT_EQ(Call(kGetFirst), kIoError);
    EXPECT_EQ(engine.calls.size(), 1u);
    EXPECT_TRUE(ends.empty());

    // Abort ends the program.
    engine.ClearCalls();
    engine.Queue(kGetLast, kIoError);
    dialogs.QueueAnswer(MsgAnswer::Abort);
    EXPECT_EQ(Call(kGetLast), kIoError);
    EXPECT_EQ(engine.calls.size(), 1u);
    EXPECT_EQ(ends.size(), 1u);
}

TEST_F(ScriptedAccess, LocksAreWaitedOutAndReportedFromTheEleventhRetry) {
    engine.Queue(kGetEqual, kRecordLocked, 12);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    EXPECT_EQ(Call(kGetEqual), kSuccess);
    EXPECT_EQ(engine.calls.size(), 13u);
    EXPECT_EQ(dialogs.messages.size(), 2u);  // after the 11th and the 12th
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(12 * 1000));

    // Only the user ends a lock wait: Ignore at the first report.
    engine.ClearCalls();
    dialogs.messages.clear();
    engine.Queue(kInsert, kFileLocked, 50);
    EXPECT_EQ(Call(kInsert), kFileLocked);
    EXPECT_EQ(engine.calls.size(), 11u);
    EXPECT_EQ(dialogs.messages.size(), 1u);
}

TEST_F(ScriptedAccess, TransactionStatusesAreWaitedOut) {
    for (int16_t status : {36, 37, 38, 39, 83, 92}) {
        engine.ClearCalls();
        engine.Queue(kInsert, status, 3);
        Milliseconds before = clock->TotalSlept();
        EXPECT_EQ(Call(kInsert), kSuccess) << status;
        EXPECT_EQ(engine.calls.size(), 4u) << status;
        EXPECT_EQ(clock->TotalSlept() - before, Milliseconds(3000)) << status;
    }
    EXPECT_TRUE(dialogs.messages.empty());

    engine.ClearCalls();
    engine.Queue(kInsert, 92, 11);
    dialogs.QueueAnswer(MsgAnswer::Ignore);
    EXPECT_EQ(Call(kInsert), 92);
    EXPECT_EQ(engine.calls.size(), 11u);
    EXPECT_EQ(dialogs.messages.size(), 1u);
}

TEST_F(ScriptedAccess, OneRetryCountForTheWholeCall) {
    // Six locks and five conflicts make eleven retries: the call gives up as for conflicts.
    engine.Queue(kGetEqual, kRecordLocked, 6);
    EXPECT_EQ(Call(kGetEqual), kSuccess);
    engine.ClearCalls();
    engine.Queue(kGetEqual, kRecordLocked, 6);
    engine.Queue(kGetEqual, kConflict, 5);
    EXPECT_EQ(Call(kGetEqual), -1);
    EXPECT_EQ(engine.calls.size(), 11u);
    EXPECT_TRUE(dialogs.messages.empty());
}

TEST_F(ScriptedAccess, Status54IsSuccessForUpdatesOfFile35AndAConflictElsewhere) {
    engine.Queue(kUpdate, 54);
    EXPECT_EQ(Call(kUpdate, 35), kSuccess);
    EXPECT_EQ(engine.calls.size(), 1u);

    engine.ClearCalls();
    engine.Queue(kUpdate, 54);
    dialogs.QueueAnswer(MsgAnswer::Retry);
    EXPECT_EQ(Call(kUpdate, 22), kSuccess);
    EXPECT_EQ(engine.Operations(), (std::vector<uint16_t>{3, 5, 3}));
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
    EXPECT_NE(dialogs.messages[0].text.find(DataFilePath(0, 23, 1)), std::string::npos);
    EXPECT_TRUE(Logged("Err: 2003"));
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
