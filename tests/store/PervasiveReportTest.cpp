// What the user and the log are told: the call history, the error report's text and box, the
// status texts, and the network incidents.
#include <gtest/gtest.h>

#include "app/Errors.h"
#include "tests/store/PervasiveTestSupport.h"
#include "tests/store/ScriptedEngine.h"

namespace toverin::testing {
namespace {

using namespace btr;

class Reports : public AccessLayerTest {
  protected:
    void SetUp() override {
        AccessLayerTest::SetUp();
        for (int station : {1, 2}) {
            std::string path = dir.file(StationFileName(22, station));
            WriteFile(path, "scripted");
            ASSERT_EQ(bank.OuvertureFichierBTrieve(0, 22, path, 0, station, kOpenNormal), kSuccess);
        }
        engine.ClearCalls();
    }

    int16_t Call(uint16_t operation, const std::string& caller = "Lecture:Lib_Main",
                 int station = 2) {
        bank.BTRieve(0, operation, data, key, 0, 22, station, caller);
        return bank.LastStatus();
    }

    const std::string& LastMessage() const { return dialogs.messages.back().text; }

    ScriptedEngine engine;
    std::string data;
    std::string key;
};

TEST_F(Reports, HistoryLinesNewestFirstInTheirExactForm) {
    key = "00012345";
    Call(kGetEqual);
    EXPECT_EQ(bank.CallHistory(0),
              (std::vector<std::string>{
                  "File:22 Station:2 OP:05 K:00 [00012345] [Sub: Lecture Lib_Main] S:0"}));

    // Writes show the record, control bytes as dots; a failure's status is the one kept.
    data = "ABC\x01\xe9";
    engine.Queue(kInsert, kDuplicateKey);
    Call(kInsert, "Ajout");
    EXPECT_EQ(bank.CallHistory(0)[0],
              "File:22 Station:2 OP:02 K:00 [ABC.\xc3\xa9] [Sub: Ajout] S:5");

    // Station 11 is rejected but still remembered.
    Call(kGetNext, "Suite", 11);
    EXPECT_EQ(bank.CallHistory(0)[0],
              "File:22 Station:11 OP:06 K:00 [ABC.\xc3\xa9] [Sub: Suite] S:9");

    for (int i = 0; i < 5; ++i) Call(kGetFirst);
    EXPECT_EQ(bank.CallHistory(0).size(), 6u);
    EXPECT_EQ(bank.CallHistory(0)[5].substr(0, 25), "File:22 Station:11 OP:06 ");
    EXPECT_TRUE(bank.CallHistory(1).empty());
}

TEST_F(Reports, TheReportNamesTheMomentTheStationTheCallerTheStatusAndTheHistory) {
    key = "00000007";
    engine.Queue(kGetEqual, kIoError);
    Call(kGetEqual, "ChargeMorceau:Lib_Morceaux");
    ASSERT_EQ(dialogs.messages.size(), 1u);
    // The help line of status 2 is the message catalogue's.
    ASSERT_EQ(MessageCatalogue("Divers00").substr(0, 8), "Conseil ");
    EXPECT_EQ(LastMessage(),
              "17/03/2026 14:05:09\n"
              "Radio Sud  (ChargeMorceau:Lib_Morceaux)\n"
              "Err: 2: The application encountered an I/O error\n"
              ">1File:22 Station:2 OP:05 K:00 [00000007] [Sub: ChargeMorceau Lib_Morceaux]\n" +
                  MessageCatalogue("Divers00") + "\n");

    // A status whose text names the file names it there alone; the history lines come as the
    // calls wrote them, newest first, with their statuses.
    engine.Queue(kGetEqual, kFileNotFound);
    key = "00000008";
    Call(kGetEqual, "Relecture", 1);
    EXPECT_EQ(LastMessage(),
              "17/03/2026 14:05:09\n"
              "Radio Nord  (Relecture)\n"
              "Err: 12: The MicroKernel cannot find the specified file (" +
                  dir.file("FRADA22.bt6") +
                  ")\n"
                  ">1File:22 Station:1 OP:05 K:00 [00000008] [Sub: Relecture]\n"
                  ">2File:22 Station:2 OP:05 K:00 [00000007] [Sub: ChargeMorceau Lib_Morceaux] "
                  "S:2\n");

    // Outside the real files there is no station line.
    bank.setLastStatus(kIoError);
    bank.ErreurBTrieve(0, 50, 1, "", "X", false, kGetEqual);
    EXPECT_EQ(LastMessage().find("Radio Nord"), std::string::npos);
    EXPECT_EQ(LastMessage().find("(X)"), std::string::npos);

    // No help line for a plain key-not-found; there is one for a delete that lost its record.
    bank.setLastStatus(kKeyNotFound);
    bank.ErreurBTrieve(0, 22, 2, "", "X", false, kGetEqual);
    EXPECT_EQ(LastMessage().find("Conseil"), std::string::npos);
    bank.ErreurBTrieve(0, 22, 2, "", "X", false, kDelete);
    EXPECT_NE(LastMessage().find("Conseil"), std::string::npos);

    // Licence exhaustion has nothing to do with the calls before it.
    bank.setLastStatus(161);
    bank.ErreurBTrieve(0, 22, 2, "", "X", false, kOpen);
    EXPECT_EQ(LastMessage().find(">1"), std::string::npos);

    // Nothing to report for success and for a conflict still being retried.
    size_t shown = dialogs.messages.size();
    for (int16_t status : {kSuccess, kConflict}) {
        bank.setLastStatus(status);
        EXPECT_EQ(bank.ErreurBTrieve(0, 22, 2, "", "X", false, kUpdate), ErrorChoice::Ok);
    }
    EXPECT_EQ(dialogs.messages.size(), shown);

    // The quiet box informs and returns.
    bank.setLastStatus(kIoError);
    EXPECT_EQ(bank.ErreurBTrieve(0, 22, 2, "", "X", true, kGetEqual), ErrorChoice::Ok);
    EXPECT_EQ(dialogs.messages.back().buttons, MsgButtons::Ok);
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);
    EXPECT_TRUE(ends.empty());
}

TEST_F(Reports, StatusTextsNameTheFileWhereTheyHaveOne) {
    EXPECT_EQ(ErreurBTrieveLibelle(12, "C:\\KV_Data\\FRAD001.bt6"),
              "Err: 12: The MicroKernel cannot find the specified file "
              "(C:\\KV_Data\\FRAD001.bt6)\n");
    EXPECT_EQ(ErreurBTrieveLibelle(46, "x"),
              "Err: 46: Access to the requested file is denied (File locked ?)\n");
    EXPECT_EQ(ErreurBTrieveLibelle(3103, "x"), "Err:3103: Network error\n");
    EXPECT_EQ(ErreurBTrieveLibelle(3102, "x"), "Err:3102\n");
}

TEST_F(Reports, NetworkFailuresMakeOneIncidentPerFiveMinutes) {
    engine.Queue(kGetEqual, 3106, 3);
    Call(kGetEqual);
    ASSERT_EQ(Incidents().size(), 1u);
    EXPECT_EQ(Incidents()[0].text, "Err: Network Pervasive errors: 3106 |Err:3106: Network error");
    EXPECT_NE(LastMessage().find("\nLe programme a rencontré un problème de connexion au "
                                 "serveur.\nVeuillez vérifier la connectique de votre réseau.\n"),
              std::string::npos);

    clock->Advance(Milliseconds(299999));
    Call(kGetEqual);
    EXPECT_EQ(Incidents().size(), 1u);
    EXPECT_NE(LastMessage().find("Veuillez vérifier la connectique"), std::string::npos);

    clock->Advance(Milliseconds(1));
    Call(kGetEqual);
    EXPECT_EQ(Incidents().size(), 2u);
    EXPECT_EQ(dialogs.messages.size(), 3u);
}

TEST_F(Reports, UnattendedNetworkFailuresGoOnOnlyWhenTheyMakeAnIncident) {
    AutomaticMode() = true;
    engine.Queue(kGetEqual, 3000, 2);
    EXPECT_EQ(Call(kGetEqual), 3000);
    EXPECT_EQ(Incidents().size(), 1u);
    EXPECT_TRUE(ends.empty());
    clock->Advance(Milliseconds(60000));
    Call(kGetEqual);
    EXPECT_EQ(Incidents().size(), 1u);
    EXPECT_EQ(ends.size(), 1u);
    EXPECT_TRUE(dialogs.messages.empty());
}

TEST_F(Reports, OpenFailures) {
    // A file that is there but refused: the report names it in French, the log in English.
    std::string path = dir.file("FRADA23.bt6");
    WriteFile(path, "x");
    key = "1";
    Call(kGetFirst);
    engine.Queue(kOpen, kAccessDenied);
    EXPECT_EQ(bank.OuvertureFichierBTrieve(0, 23, path, 0, 1, kOpenNormal), kAccessDenied);
    EXPECT_FALSE(bank.IsFileOpen(0, 23, 1));
    EXPECT_EQ(bank.OpenFilePath(0, 23, 1), path);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(LastMessage().find("FRADA23.bt6: Impossible d'ouvrir: " + path), std::string::npos);
    EXPECT_TRUE(Logged("Err: FRADA23.bt6: Unable to open: " + path));

    // A missing file never reaches the engine; its number goes on the newest history line.
    engine.ClearCalls();
    std::string missing = dir.file("FRADA24.bt6");
    EXPECT_EQ(bank.OuvertureFichierBTrieve(0, 24, missing, 0, 1, kOpenNormal), kFileNotFound);
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_EQ(bank.CallHistory(0)[0].substr(bank.CallHistory(0)[0].size() - 8), " S:0 |24");
    EXPECT_NE(LastMessage().find("Err: 12: The MicroKernel cannot find the specified file (" +
                                 missing + ")"),
              std::string::npos);

    // With the quiet flag the caller handles it alone.
    bank.setQuiet(true);
    size_t shown = dialogs.messages.size();
    EXPECT_EQ(bank.OuvertureFichierBTrieve(0, 24, missing, 0, 1, kOpenNormal), kFileNotFound);
    EXPECT_EQ(dialogs.messages.size(), shown);
}

TEST_F(Reports, ProcedureTraceNamesModuleAndProcedure) {
    ProcedureTrace() = true;
    Call(kGetFirst);
    ErreurBTrieveLibelle(2, "");
    ProcedureTrace() = false;
    EXPECT_TRUE(Logged("Lib_Data_Pervasive:BTRieve"));
    EXPECT_TRUE(Logged("Lib_Data_Pervasive:BTRieve_Reel"));
    EXPECT_TRUE(Logged("Lib_Data_Pervasive_2:ErreurBTrieveLibelle"));
}

}  // namespace
}  // namespace toverin::testing
