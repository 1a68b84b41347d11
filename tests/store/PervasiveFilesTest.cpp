// The access layer on the real engine and real files in a temporary data folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "app/Paths.h"
#include "app/Text.h"
#include "store/RecordCopy.h"
#include "store/RecordLayout.h"
#include "tests/store/PervasiveTestSupport.h"
#include "tests/store/ScriptedEngine.h"

namespace toverin::testing {
namespace {

using namespace btr;

constexpr int kCommon = 42;  // one file for the base, key 0: bytes 1..20, unique

std::string Record42(const std::string& key, char fill = ' ') {
    std::string record = BlankRecord(kCommon);
    record.replace(0, 20, FixedWidth(key, 20));
    record[100] = fill;
    return record;
}

class RealFiles : public AccessLayerTest {
  protected:
    int16_t Call(uint16_t operation, const std::string& search = "", SlotBank* in = nullptr) {
        SlotBank& b = in != nullptr ? *in : bank;
        key = search;
        b.BTRieve(0, operation, data, key, 0, kCommon, 1, "Test");
        return b.LastStatus();
    }
    int16_t Write(uint16_t operation, const std::string& record, SlotBank* in = nullptr) {
        SlotBank& b = in != nullptr ? *in : bank;
        data = record;
        key.clear();
        b.BTRieve(0, operation, data, key, 0, kCommon, 1, "Test");
        return b.LastStatus();
    }

    std::string data;
    std::string key;
    SlotBank other{"Other"};
};

TEST_F(RealFiles, SmallFilesAreCreatedOnOpenOthersStayMissing) {
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 2, 45));
    for (int station : {1, 2}) {
        std::string path = DataFilePath(0, 45, station);
        EXPECT_TRUE(FileExists(path)) << path;
        EXPECT_TRUE(bank.IsFileOpen(0, 45, station));
        EXPECT_EQ(bank.OpenFilePath(0, 45, station), path);
        EXPECT_TRUE(Logged("File: " + path + " not found |Create empty structure"));
    }
    EXPECT_EQ(FileNameOf(DataFilePath(0, 45, 2)), "FRADB45.bt6");
    EXPECT_EQ(bank.RecordCount(0, 45, 2), 0);
    bank.FichierPervasiveFermer(0, 1, 2, 45);
    EXPECT_FALSE(bank.IsFileOpen(0, 45, 1));
    EXPECT_EQ(bank.RecordCount(0, 45, 1), -1);

    // A missing file of another number is neither created nor opened; using it ends the program.
    EXPECT_FALSE(bank.FichierPervasiveOuvrir(0, 1, 1, 22));
    EXPECT_FALSE(FileExists(DataFilePath(0, 22, 1)));
    EXPECT_TRUE(dialogs.messages.empty());
    std::string d, k;
    bank.BTRieve(0, kGetFirst, d, k, 0, 22, 1, "Lecture");
    EXPECT_EQ(ends.size(), 1u);
    EXPECT_EQ(bank.LastStatus(), kFileNotOpen);

    // Empty catalogue entries have no file.
    EXPECT_FALSE(bank.FichierPervasiveOuvrir(0, 1, 1, 36));
}

TEST_F(RealFiles, ReadsAndWritesGoThroughTheGuardedCall) {
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    EXPECT_EQ(Write(kInsert, Record42("0002")), kSuccess);
    EXPECT_EQ(Write(kInsert, Record42("0001")), kSuccess);
    EXPECT_EQ(Write(kInsert, Record42("0003")), kSuccess);
    EXPECT_EQ(Write(kInsert, Record42("0001")), kDuplicateKey);  // silent

    EXPECT_EQ(Call(kGetEqual, FixedWidth("0002", 20)), kSuccess);
    EXPECT_EQ(data.size(), CatalogueEntryFor(kCommon).recordLength);
    EXPECT_EQ(key, FixedWidth("0002", 20));
    EXPECT_EQ(Call(kGetNext, key), kSuccess);
    EXPECT_EQ(data.substr(0, 4), "0003");
    EXPECT_EQ(Call(kGetNext, key), kEndOfFile);                        // silent
    EXPECT_EQ(Call(kGetEqual, FixedWidth("0009", 20)), kKeyNotFound);  // silent

    // High values lowered to 'z' still find the last record below them.
    EXPECT_EQ(Call(kGetLessThan, std::string(20, '\xff')), kSuccess);
    EXPECT_EQ(data.substr(0, 4), "0003");

    EXPECT_EQ(Call(kGetEqual, FixedWidth("0001", 20)), kSuccess);
    EXPECT_EQ(Write(kUpdate, Record42("0001", 'X')), kSuccess);
    EXPECT_EQ(Call(kGetFirst), kSuccess);
    EXPECT_EQ(data[100], 'X');
    EXPECT_TRUE(dialogs.messages.empty());

    EXPECT_EQ(bank.RecordCount(0, kCommon, 1), 3);
    std::string path = bank.OpenFilePath(0, kCommon, 1);
    bank.FichierPervasiveFermer(0, 1, 1, kCommon);
    EXPECT_EQ(RecordCountOfFile(path), 3);
    EXPECT_EQ(RecordCountOfFile(dir.file("nothing.bt6")), -1);
}

TEST_F(RealFiles, AnUpdateAfterAnotherSlotsChangeIsReReadAndWritten) {
    // Two banks on the same file stand for two workstations.
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    ASSERT_TRUE(other.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    ASSERT_EQ(Write(kInsert, Record42("0001")), kSuccess);
    ASSERT_EQ(Call(kGetEqual, FixedWidth("0001", 20)), kSuccess);
    ASSERT_EQ(Call(kGetEqual, FixedWidth("0001", 20), &other), kSuccess);
    ASSERT_EQ(Write(kUpdate, Record42("0001", 'A')), kSuccess);

    EXPECT_EQ(Write(kUpdate, Record42("0001", 'B'), &other), kSuccess);
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(500));
    EXPECT_EQ(Call(kGetEqual, FixedWidth("0001", 20)), kSuccess);
    EXPECT_EQ(data[100], 'B');
    EXPECT_NE(other.CallHistory(0)[0].find(" S:0"), std::string::npos);

    // A caller that kept the key of its read is re-read by that key.
    ASSERT_EQ(Write(kUpdate, Record42("0001", 'C'), &other), kSuccess);
    data = Record42("0001", 'D');
    key = FixedWidth("0001", 20);
    bank.BTRieve(0, kUpdate, data, key, 0, kCommon, 1, "Test");
    EXPECT_EQ(bank.LastStatus(), kSuccess);
    EXPECT_EQ(clock->TotalSlept(), Milliseconds(1000));
    EXPECT_EQ(Call(kGetEqual, FixedWidth("0001", 20), &other), kSuccess);
    EXPECT_EQ(data[100], 'D');
    other.FichierPervasiveFermer(0, 1, 1, kCommon);
    bank.FichierPervasiveFermer(0, 1, 1, kCommon);
}

TEST_F(RealFiles, EachBankKeepsItsOwnSlotsOnTheSameFile) {
    // A viewer browsing a file while a backup opens, reads and closes the same file: neither
    // closes nor moves the other.
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    for (const char* code : {"0001", "0002", "0003"})
        ASSERT_EQ(Write(kInsert, Record42(code)), kSuccess);
    ASSERT_EQ(Call(kGetFirst), kSuccess);
    {
        SlotBank backup("Backup");
        ASSERT_TRUE(backup.FichierPervasiveOuvrir(0, 1, 1, kCommon));
        EXPECT_EQ(Call(kGetLast, "", &backup), kSuccess);
        EXPECT_EQ(data.substr(0, 4), "0003");
        EXPECT_TRUE(bank.IsFileOpen(0, kCommon, 1));
        // Leaving the backup's bank closes its files only.
    }
    EXPECT_TRUE(bank.IsFileOpen(0, kCommon, 1));
    EXPECT_EQ(Call(kGetNext, key), kSuccess);
    EXPECT_EQ(data.substr(0, 4), "0002");
    EXPECT_TRUE(bank.CallHistory(0).size() >= 2);
    EXPECT_TRUE(other.CallHistory(0).empty());
    EXPECT_TRUE(ends.empty());
}

TEST_F(RealFiles, AViewerBrowsesAFileWhileABackupCopiesItRecordByRecord) {
    // The data viewer holds the file in its browsing bank and steps through it between the
    // backup's records; the backup reads the same file in its sources bank and writes the copy
    // in its copies bank. Nobody closes or moves anybody else's slot.
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    constexpr int kRecords = 60;
    for (int n = 1; n <= kRecords; ++n)
        ASSERT_EQ(Write(kInsert, Record42(ZeroPad(n, 4))), kSuccess);

    SlotBank viewer("Visualisation");
    viewer.setBrowsing(true);
    ASSERT_TRUE(viewer.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    std::string viewed, viewerKey;
    viewer.BTRieve(0, kGetFirst, viewed, viewerKey, 0, kCommon, 1, "Visualisation");
    ASSERT_EQ(viewer.LastStatus(), kSuccess);
    std::vector<std::string> seen{viewed.substr(0, 4)};

    const std::string copyPath = dir.folder() + "Copie/" + StationFileName(kCommon, 1);
    std::filesystem::create_directories(dir.folder() + "Copie");
    ASSERT_EQ(CreationFichierBTrieve(copyPath, kCommon), kSuccess);
    RecordCopyResult result;
    {
        SlotBank sources("Backup"), copies("Backup copies");
        ASSERT_TRUE(sources.FichierPervasiveOuvrir(0, 1, 1, kCommon));
        ASSERT_EQ(copies.OuvertureFichierBTrieve(0, kCommon, copyPath, 0, 1, kOpenAccelerated),
                  kSuccess);
        RecordCopyJob job;
        job.source = &sources;
        job.fileNumber = kCommon;
        job.target = &copies;
        job.lower = std::string(20, '\0');
        job.upper = std::string(20, '\xff');
        job.afterRecord = [&] {
            viewer.BTRieve(0, kGetNext, viewed, viewerKey, 0, kCommon, 1, "Visualisation");
            if (viewer.LastStatus() == kSuccess) seen.push_back(viewed.substr(0, 4));
            return true;
        };
        result = CopyRecords(job);
        EXPECT_TRUE(viewer.IsFileOpen(0, kCommon, 1));
    }
    EXPECT_EQ(result.copied, kRecords);
    EXPECT_FALSE(result.readError || result.writeError);
    EXPECT_EQ(RecordCountOfFile(copyPath), kRecords);

    // The viewer read every record once, in order, and its slot still works after the backup's
    // banks have closed theirs.
    ASSERT_EQ(seen.size(), static_cast<size_t>(kRecords));
    for (int n = 1; n <= kRecords; ++n) EXPECT_EQ(seen[n - 1], ZeroPad(n, 4));
    viewerKey = FixedWidth("0030", 20);
    viewer.BTRieve(0, kGetEqual, viewed, viewerKey, 0, kCommon, 1, "Visualisation");
    EXPECT_EQ(viewer.LastStatus(), kSuccess);
    viewer.BTRieve(0, kGetPrevious, viewed, viewerKey, 0, kCommon, 1, "Visualisation");
    EXPECT_EQ(viewed.substr(0, 4), "0029");
    EXPECT_TRUE(bank.IsFileOpen(0, kCommon, 1));
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());
}

TEST_F(RealFiles, TheNinSightFileIsOpenedFromTheFolderTheSiteNamesForIt) {
    // The base's own file 19 and the NinSight interface's, one record each, told apart by
    // their first bytes (key 1 of file 19 starts at byte 19).
    auto fill = [&](const std::string& path, char mark) {
        ASSERT_EQ(CreationFichierBTrieve(path, 19), kSuccess);
        SlotBank writer("Writer");
        ASSERT_EQ(writer.OuvertureFichierBTrieve(0, 19, path, 0, 1, kOpenNormal), kSuccess);
        std::string record = BlankRecord(19);
        record[0] = mark;
        std::string k;
        writer.BTRieve(0, kInsert, record, k, 0, 19, 1, "Test");
        ASSERT_EQ(writer.LastStatus(), kSuccess);
    };
    fill(DataFilePath(0, 19, 1), 'D');
    const std::string ninSight = dir.folder() + "NinSight/";
    std::filesystem::create_directories(ninSight);
    fill(ninSight + "FRAD019.bt6", 'N');

    // No folder named: nothing opened, the log says which key is missing.
    EXPECT_FALSE(bank.FichierPervasiveOuvrirNinSight(0, 19));
    EXPECT_FALSE(bank.IsFileOpen(0, 19, 1));
    EXPECT_TRUE(Logged("Err: NinSight: no folder for base 1 (Dossier_NinSight, Base_01)"));

    Site().bases[0].ninSightFolder = ninSight;
    ASSERT_TRUE(bank.FichierPervasiveOuvrirNinSight(0, 19));
    EXPECT_EQ(bank.OpenFilePath(0, 19, 1), ninSight + "FRAD019.bt6");
    ASSERT_TRUE(other.FichierPervasiveOuvrir(0, 1, 1, 19));
    std::string d, k;
    bank.BTRieve(0, kGetFirst, d, k, 0, 19, 1, "Test");
    EXPECT_EQ(d[0], 'N');
    other.BTRieve(0, kGetFirst, d, k, 0, 19, 1, "Test");
    EXPECT_EQ(d[0], 'D');

    // A NinSight folder without the file: not created, not opened.
    Site().bases[0].ninSightFolder = dir.folder() + "Empty/";
    EXPECT_FALSE(bank.FichierPervasiveOuvrirNinSight(0, 19));
    EXPECT_FALSE(FileExists(dir.folder() + "Empty/FRAD019.bt6"));
    EXPECT_TRUE(dialogs.messages.empty());
}

TEST_F(RealFiles, StructureOfACreatedFile) {
    std::string path = dir.file("FRADA20.bt6");
    ASSERT_EQ(CreationFichierBTrieve(path, 20), kSuccess);
    // Reading a structure while the layer holds a file open leaves that file usable.
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    std::string expected =
        "F RecLen:300 PageSize:" + std::to_string(CatalogueEntryFor(20).pageSize) +
        " Keys:4 Records:0\n"
        "K0 Pos:1 Len:5 Modifiable \n"
        "K1 Pos:6 Len:10 Duplicate Modifiable \n"
        "K2 Pos:16 Len:20 Duplicate Modifiable Casse \n"
        "K3 Pos:46 Len:1 Duplicate Modifiable Segmented \n"
        "K3 Pos:16 Len:20 Duplicate Modifiable \n";
    EXPECT_EQ(LectureStructureFichier(20, path), expected);
    EXPECT_EQ(Write(kInsert, Record42("0001")), kSuccess);
    bank.FichierPervasiveFermer(0, 1, 1, kCommon);
    // With nothing open, the engine is reset first; the answer is the same.
    EXPECT_EQ(LectureStructureFichier(20, path), expected);

    std::string missing = dir.file("FRADA21.bt6");
    EXPECT_EQ(LectureStructureFichier(21, missing), "");
    EXPECT_TRUE(Logged("Err: 12 File: " + missing));
}

TEST_F(RealFiles, FailedCreationIsRetriedOnceAndTraced) {
    std::string path = dir.folder() + "absent/FRADA20.bt6";
    EXPECT_NE(CreationFichierBTrieve(path, 20), kSuccess);
    EXPECT_TRUE(Logged("Err: Create File: " + path +
                       " |PbSBtrPosBulk$:  |PbTBtrFileBuf.RecLen: 300 |PbTBtrFileBuf.IndxCnt: 4"
                       " |BufferCle: " +
                       path + "  |LngCle: " + std::to_string(path.size() + 1)));

    // The retry carries the name with a terminating blank.
    ScriptedEngine engine;
    engine.Queue(kCreate, kInvalidFileName);
    std::string other = dir.file("FRADA20.bt6");
    EXPECT_EQ(CreationFichierBTrieve(other, 20), kSuccess);
    ASSERT_EQ(engine.calls.size(), 2u);
    EXPECT_EQ(engine.calls[0].key, other);
    EXPECT_EQ(engine.calls[1].key, other + " ");
    EXPECT_EQ(engine.calls[1].dataLength, 160u);
}

TEST_F(RealFiles, AFileOfAnotherKindIsReportedAndLeftClosed) {
    WriteFile(DataFilePath(0, kCommon, 1), "this is not a record file, just text");
    EXPECT_FALSE(bank.FichierPervasiveOuvrir(0, 1, 1, kCommon));
    EXPECT_FALSE(bank.IsFileOpen(0, kCommon, 1));
    EXPECT_NE(bank.LastStatus(), kSuccess);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_NE(dialogs.messages[0].text.find(": Impossible d'ouvrir: "), std::string::npos);
    EXPECT_TRUE(Logged(": Unable to open: " + DataFilePath(0, kCommon, 1)));
}

TEST_F(RealFiles, EngineVersion) {
    EXPECT_TRUE(std::regex_match(VersionsMoteur(), std::regex(R"(1\.00 3\.\d\d)")))
        << VersionsMoteur();
}

}  // namespace
}  // namespace toverin::testing
