#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/ExportReadBack.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::CtlRun;
using testing::RunCaptured;

int Count(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

class FileCommandTest : public ::testing::Test {
  protected:
    void SetUp() override { engine::SetSyncedWrites(false); }
    void TearDown() override { engine::SetSyncedWrites(true); }

    // A songs file (22) of station 1 holding one song per title, codes 00000001 upwards.
    std::string MakeSongs(const std::vector<std::string>& titles,
                          const std::string& name = "FRADA22.bt6") {
        std::string path = dir.file(name);
        EXPECT_EQ(engine::EngineFile::Create(path, CreationRecord(22)), btr::kSuccess);
        engine::EngineFile file;
        EXPECT_EQ(file.Open(path, btr::kOpenAccelerated), btr::kSuccess);
        std::string key(255, '\0');
        for (size_t i = 0; i < titles.size(); ++i) {
            std::string record = BlankRecord(22);
            RecordView song(22, record);
            song.SetText("SongId", ZeroPadded(i + 1));
            song.SetText("Title", titles[i]);
            EXPECT_EQ(file.Call(btr::kInsert, record, key, 0), btr::kSuccess);
        }
        file.Close();
        return path;
    }
    static std::string ZeroPadded(size_t n) {
        std::string digits = std::to_string(n);
        return std::string(8 - digits.size(), '0') + digits;
    }

    testing::TempDir dir;
};

TEST_F(FileCommandTest, CreateMakesTheCatalogueFileAndStatShowsItsStructure) {
    const std::string path = dir.file("FRADB22.bt6");
    CtlRun create = RunCaptured({"file", "create", path});
    ASSERT_EQ(create.status, 0) << create.err;
    EXPECT_EQ(create.out, "Created " + path + ": file 22 \"Morceaux\"\n");

    CtlRun stat = RunCaptured({"file", "stat", path});
    ASSERT_EQ(stat.status, 0) << stat.err;
    EXPECT_EQ(stat.out,
              "F record-length 900 page-size 2048 keys 6 records 0\n"
              "K 0.0 position 1 length 8 flags 2 modifiable\n"
              "K 1.0 position 9 length 5 flags 3 duplicates,modifiable\n"
              "K 2.0 position 19 length 5 flags 3 duplicates,modifiable\n"
              "K 3.0 position 64 length 5 flags 3 duplicates,modifiable\n"
              "K 4.0 position 69 length 5 flags 3 duplicates,modifiable\n"
              "K 5.0 position 24 length 20 flags 1027 duplicates,modifiable,case-insensitive\n"
              "Records: 0\n");

    // A segmented key shows each of its segments.
    const std::string labels = dir.file("FRAD021.btr");
    ASSERT_EQ(RunCaptured({"file", "create", labels, "--catalogue", "21"}).status, 0);
    std::string out = RunCaptured({"file", "stat", labels}).out;
    EXPECT_NE(out.find("K 1.0 position 1 length 5 flags 1043 "
                       "duplicates,modifiable,segmented,case-insensitive\n"
                       "K 1.1 position 11 length 10 flags 1027"),
              std::string::npos)
        << out;

    // An existing file is never replaced; a name without a catalogue number needs one.
    EXPECT_EQ(RunCaptured({"file", "create", path}).status, 1);
    EXPECT_EQ(RunCaptured({"file", "create", dir.file("notes.bt6")}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "create", dir.file("x.bt6"), "--catalogue", "36"}).status, 2);
    EXPECT_FALSE(fs::exists(dir.file("x.bt6")));
}

TEST_F(FileCommandTest, DumpCutsRecordsIntoTheViewersFieldsAsCsvOrXml) {
    const std::string path =
        MakeSongs({"Sous la pluie", "Rock; Roll \"live\"", "Café & <Compagnie>"});

    CtlRun csv = RunCaptured({"file", "dump", path});
    ASSERT_EQ(csv.status, 0) << csv.err;
    std::istringstream lines(csv.out);
    std::string header, first, second, third, rest;
    std::getline(lines, header);
    std::getline(lines, first);
    std::getline(lines, second);
    std::getline(lines, third);
    EXPECT_FALSE(std::getline(lines, rest));
    EXPECT_EQ(header.rfind("SongId;Artist_1;Artist_2;Album;Title;Lot;Category;", 0), 0u);
    EXPECT_EQ(Count(header, ";") + 1, 136);  // the viewer's columns of a song
    EXPECT_EQ(first.rfind("00000001;;;;Sous la pluie;;", 0), 0u) << first;
    EXPECT_EQ(second.rfind("00000002;;;;\"Rock; Roll \"\"live\"\"\";;", 0), 0u) << second;
    EXPECT_EQ(third.rfind("00000003;;;;Café & <Compagnie>;", 0), 0u) << third;  // UTF-8

    CtlRun xml = RunCaptured({"file", "dump", path, "--format", "xml"});
    ASSERT_EQ(xml.status, 0) << xml.err;
    EXPECT_EQ(xml.out.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root_element>\n", 0), 0u);
    EXPECT_EQ(Count(xml.out, "<collection_element>"), 3);
    EXPECT_NE(xml.out.find("<Title>Café &amp; &lt;Compagnie&gt;</Title>"), std::string::npos);
    // Headings that are not XML names: "#Broad", "IdSysTiers:_0", "Code_Rec.", "DateMessage ".
    EXPECT_NE(xml.out.find("<_Broad>000000</_Broad>"), std::string::npos);
    EXPECT_NE(xml.out.find("<IdSysTiers__0/>"), std::string::npos);
    EXPECT_NE(xml.out.find("<Code_Rec./>"), std::string::npos);
    EXPECT_NE(xml.out.find("<DateMessage/>"), std::string::npos);
    EXPECT_EQ(xml.out.find("<#"), std::string::npos);
    EXPECT_EQ(xml.out.substr(xml.out.size() - 16), "</root_element>\n");

    // The file name gives the layout; under any other name --catalogue does.
    fs::copy_file(path, dir.file("songs.bt6"));
    std::string raw = RunCaptured({"file", "dump", dir.file("songs.bt6")}).out;
    EXPECT_EQ(raw.rfind("Record\n00000001", 0), 0u) << raw.substr(0, 40);
    EXPECT_EQ(RunCaptured({"file", "dump", dir.file("songs.bt6"), "--catalogue", "22"}).out,
              csv.out);
}

TEST_F(FileCommandTest, DumpReadsTheRangeOfTheChosenKey) {
    const std::string path = MakeSongs({"Sous la pluie", "rock et folk", "Café", "Rivière"});
    auto codes = [&](const ctl::Args& options) {
        ctl::Args args = {"file", "dump", path};
        args.insert(args.end(), options.begin(), options.end());
        CtlRun run = RunCaptured(args);
        EXPECT_EQ(run.status, 0) << run.err;
        std::string found;
        std::istringstream lines(run.out);
        std::string line;
        std::getline(lines, line);  // header
        while (std::getline(lines, line)) found += line.substr(0, 8) + " ";
        return found;
    };
    EXPECT_EQ(codes({"--from", "00000002", "--to", "00000003"}), "00000002 00000003 ");
    EXPECT_EQ(codes({"--from", "00000004"}), "00000004 ");
    // The title key ignores case, and so do its bounds: "r" to "r" is every title in R.
    EXPECT_EQ(codes({"--key", "5", "--from", "r", "--to", "r"}), "00000004 00000002 ");
    EXPECT_EQ(codes({"--key", "5", "--to", "D"}), "00000003 ");
    EXPECT_EQ(codes({"--key", "5", "--from", "t"}), "");

    EXPECT_EQ(RunCaptured({"file", "dump", path, "--key", "6"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "dump", path, "--key", "x"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "dump", path, "--format", "json"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "dump", path, "--catalogue", "8"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "dump", path, "--frm", "1"}).status, 2);
}

TEST_F(FileCommandTest, DumpWritesWorkbooksThatSpreadsheetReadersRead) {
    const std::string path = MakeSongs({"Sous la pluie", "Café & <Compagnie>", "Rivière"});
    for (const std::string kind : {"xls", "xlsx"}) {
        const std::string output = dir.file("songs." + kind);
        CtlRun run = RunCaptured(
            {"file", "dump", path, "--from", "00000002", "--format", kind, "--output", output});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "Exported 2 records to " + output + "\n");
        // The first columns of the song rows; the rest of a blank song is blanks and zeros.
        std::vector<std::string> headings = VisuDataInitCol(22);
        std::vector<std::string> second = CutRecord(22, [] {
            std::string record = BlankRecord(22);
            RecordView song(22, record);
            song.SetText("SongId", "00000002");
            song.SetText("Title", "Café & <Compagnie>");
            return record;
        }());
        std::vector<std::string> third = second;
        third[0] = "00000003";
        third[4] = "Rivière";
        EXPECT_EQ(
            testing::ReadBack(kind, output,
                              testing::WorkbookJson({{"Feuil1", {headings, second, third}}}), dir),
            "same cells");
    }
    // A workbook needs a file; a folder that does not exist fails the dump.
    EXPECT_EQ(RunCaptured({"file", "dump", path, "--format", "xls"}).status, 2);
    CtlRun lost = RunCaptured(
        {"file", "dump", path, "--format", "xlsx", "--output", dir.file("none/songs.xlsx")});
    EXPECT_EQ(lost.status, 1);
    EXPECT_NE(lost.err.find("failed"), std::string::npos) << lost.err;
}

TEST_F(FileCommandTest, CopyKeepsEveryRecordAndTheStructureAndCheckPassesOnIt) {
    const std::string source = MakeSongs({"Sous la pluie", "Rock", "Café", "Rock"});
    const std::string target = dir.file("FRADC22.btr");
    CtlRun copy = RunCaptured({"file", "copy", source, target});
    ASSERT_EQ(copy.status, 0) << copy.err;
    EXPECT_EQ(copy.out, "Copied 4 records from " + source + " to " + target + "\n");

    EXPECT_EQ(RunCaptured({"file", "stat", target}).out, RunCaptured({"file", "stat", source}).out);
    for (const char* key : {"0", "5"}) {
        EXPECT_EQ(RunCaptured({"file", "dump", target, "--key", key}).out,
                  RunCaptured({"file", "dump", source, "--key", key}).out);
    }
    CtlRun check = RunCaptured({"file", "check", target});
    EXPECT_EQ(check.status, 0) << check.out;
    EXPECT_NE(check.out.find("Key 5: 4 forward, 4 backward\n"), std::string::npos);
    EXPECT_NE(check.out.find("SQLite integrity: ok\n"), std::string::npos);
    EXPECT_NE(check.out.find(target + ": OK (4 records, 6 keys)\n"), std::string::npos);

    // The target must be new.
    EXPECT_EQ(RunCaptured({"file", "copy", source, target}).status, 1);
}

// Over a backup folder: stat, dump, check and copy read their sources read-only, which leaves
// every byte and the folder's listing as they were, even for a copy whose indexes were put off
// (which the reads by every key of a check would otherwise build).
TEST_F(FileCommandTest, ReadingCommandsLeaveABackupFolderAsTheyFoundIt) {
    std::vector<std::string> titles;
    for (int i = 0; i < 500; ++i) titles.push_back("Titre " + std::to_string(i * 7 % 60));
    const std::string copy = MakeSongs(titles, "FRADA22.btr");
    const std::string written = dir.file("FRADB22.btr");
    fs::copy_file(copy, written);
    {
        engine::EngineFile file;  // opened to be written: builds every index, ends in WAL
        ASSERT_EQ(file.Open(written), btr::kSuccess);
        std::string record = BlankRecord(22), key(255, '\0');
        ASSERT_EQ(file.Call(btr::kGetFirst, record, key, 5), btr::kSuccess);
        ASSERT_EQ(file.Call(btr::kUpdate, record, key, 5), btr::kSuccess);
    }
    testing::TempDir other;
    const std::vector<std::string> before = {testing::ReadFile(copy), testing::ReadFile(written)};
    const auto listing = [&] {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    };
    ASSERT_EQ(listing(), (std::vector<std::string>{"FRADA22.btr", "FRADB22.btr"}));

    for (const std::string& path : {copy, written}) {
        SCOPED_TRACE(path);
        CtlRun check = RunCaptured({"file", "check", path});
        EXPECT_EQ(check.status, 0) << check.out << check.err;
        EXPECT_NE(check.out.find("Key 5: 500 forward, 500 backward\n"), std::string::npos);
        EXPECT_EQ(RunCaptured({"file", "stat", path}).status, 0);
        CtlRun dump = RunCaptured({"file", "dump", path, "--key", "5"});
        EXPECT_EQ(Count(dump.out, "\n"), 501);
        EXPECT_EQ(RunCaptured({"file", "copy", path, other.file(fs::path(path).filename())}).status,
                  0);
    }
    EXPECT_EQ(testing::ReadFile(copy), before[0]);
    EXPECT_EQ(testing::ReadFile(written), before[1]);
    EXPECT_EQ(listing(), (std::vector<std::string>{"FRADA22.btr", "FRADB22.btr"}));
}

TEST_F(FileCommandTest, CheckFailsOnADamagedFile) {
    std::vector<std::string> titles;
    for (int i = 0; i < 3000; ++i) titles.push_back("Titre " + std::to_string(i * 7919 % 3000));
    const std::string path = MakeSongs(titles);
    ASSERT_EQ(RunCaptured({"file", "check", path}).status, 0);
    {
        // Garbage over pages in the middle of the file, the header page left alone.
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(fs::file_size(path) / 2));
        std::string garbage(64 * 1024, '\x5A');
        file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
    }
    CtlRun check = RunCaptured({"file", "check", path});
    EXPECT_EQ(check.status, 1) << check.out;
    EXPECT_NE(check.out.find(path + ": FAILED"), std::string::npos) << check.out;
}

TEST_F(FileCommandTest, ExitStatusTellsMissingFilesForeignFilesAndUsageErrors) {
    const std::string missing = dir.file("FRADA35.bt6");
    for (const char* action : {"stat", "dump", "check"}) {
        CtlRun run = RunCaptured({"file", action, missing});
        EXPECT_EQ(run.status, 3) << action;
        EXPECT_NE(run.err.find("no such file: " + missing), std::string::npos) << run.err;
    }
    EXPECT_EQ(RunCaptured({"file", "copy", missing, dir.file("copy.bt6")}).status, 3);

    const std::string text = dir.file("FRADA20.bt6");
    testing::WriteFile(text, "Ceci n'est pas un fichier de la base.\r\n");
    for (const char* action : {"stat", "dump", "check"}) {
        CtlRun run = RunCaptured({"file", action, text});
        EXPECT_EQ(run.status, 4) << action;
        EXPECT_NE(run.err.find("not a record file (status 30)"), std::string::npos) << run.err;
    }
    EXPECT_EQ(RunCaptured({"file", "copy", text, dir.file("copy.bt6")}).status, 4);
    EXPECT_FALSE(fs::exists(dir.file("copy.bt6")));

    EXPECT_EQ(RunCaptured({"file"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "shred", text}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "stat"}).status, 2);
    EXPECT_EQ(RunCaptured({"file", "copy", text}).status, 2);
}

}  // namespace
}  // namespace toverin
