// The data viewer's reader on real record files: key ranges, the end of the range, bad keys and
// missing files, the columns of every file, and file 21's records of their own forms.
#include <gtest/gtest.h>

#include "store/Catalogue.h"
#include "store/RecordCursor.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "tests/store/PervasiveTestSupport.h"

namespace toverin {
namespace {

class RecordCursorTest : public testing::AccessLayerTest {
  protected:
    // File `fileNumber` of station 1 holding `records`, written through a bank of its own.
    std::string MakeFile(int fileNumber, const std::vector<std::string>& records) {
        const std::string path = DataFilePath(0, fileNumber, 1);
        EXPECT_EQ(CreationFichierBTrieve(path, fileNumber), btr::kSuccess);
        SlotBank writer("Writer");
        EXPECT_TRUE(writer.FichierPervasiveOuvrir(0, 1, 1, fileNumber));
        for (std::string record : records) {
            std::string key;
            writer.BTRieve(0, btr::kInsert, record, key, 0, fileNumber, 1, "Test");
            EXPECT_EQ(writer.LastStatus(), btr::kSuccess);
        }
        return path;
    }

    std::string Song(const std::string& id, const std::string& title) {
        std::string record = BlankRecord(22);
        RecordView song(22, record);
        song.SetText("SongId", id);
        song.SetText("Title", title);
        return record;
    }

    std::string Songs() {
        return MakeFile(22, {Song("00000001", "Sous la pluie"), Song("00000002", "rock et folk"),
                             Song("00000003", "Café"), Song("00000004", "Rivière"),
                             Song("00000005", "Rivière")});
    }

    // The first cell of every row of the range.
    std::string Ids(const CursorSpec& query) {
        RecordCursor cursor;
        EXPECT_EQ(cursor.Open(query), CursorOpen::Ok);
        std::string ids;
        CursorRow row;
        while (cursor.Next(row)) ids += row.cells[0] + " ";
        EXPECT_FALSE(cursor.Failed()) << cursor.Status();
        return ids;
    }
};

TEST_F(RecordCursorTest, ReadsTheRangeOfTheChosenKey) {
    const std::string path = Songs();
    EXPECT_EQ(Ids({path, 22, 0, "", ""}), "00000001 00000002 00000003 00000004 00000005 ");
    EXPECT_EQ(Ids({path, 22, 0, "00000002", "00000003"}), "00000002 00000003 ");
    // An empty limit lists to the end of the file; a start above every key lists nothing.
    EXPECT_EQ(Ids({path, 22, 0, "00000004", ""}), "00000004 00000005 ");
    EXPECT_EQ(Ids({path, 22, 0, "99", ""}), "");
    EXPECT_EQ(Ids({path, 22, 0, "", "00000000"}), "");
    // The title key ignores case, and so do its bounds; duplicates come in insertion order.
    EXPECT_EQ(Ids({path, 22, 5, "r", "r"}), "00000004 00000005 00000002 ");
    EXPECT_EQ(Ids({path, 22, 5, "", "D"}), "00000003 ");
    EXPECT_EQ(Ids({path, 22, 5, "t", ""}), "");

    RecordCursor cursor;
    ASSERT_EQ(cursor.Open({path, 22, 0, "", ""}), CursorOpen::Ok);
    EXPECT_EQ(cursor.RecordCount(), 5);
    EXPECT_EQ(cursor.KeyCount(), 6);
    EXPECT_EQ(cursor.Headings(), VisuDataInitCol(22));
    CursorRow row;
    ASSERT_TRUE(cursor.Next(row));
    EXPECT_EQ(row.cells.size(), 136u);
    EXPECT_EQ(row.cells[4], "Sous la pluie");
    EXPECT_EQ(row.headings, nullptr);
    // The reads left no message and nothing in the log's error lines.
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());
}

TEST_F(RecordCursorTest, MarksBringBackTheSameRecordAmongDuplicates) {
    const std::string path = Songs();
    RecordCursor cursor;
    ASSERT_EQ(cursor.Open({path, 22, 5, "", ""}), CursorOpen::Ok);
    std::vector<CursorMark> marks;
    std::vector<std::string> ids;
    CursorRow row;
    while (cursor.Next(row)) {
        marks.push_back(cursor.Mark());
        ids.push_back(row.cells[0]);
    }
    ASSERT_EQ(ids.size(), 5u);
    // The second "Rivière" is the second of its value.
    EXPECT_EQ(marks[2].duplicatesBefore, 1u);
    for (size_t i = ids.size(); i-- > 0;) {
        ASSERT_TRUE(cursor.SeekTo(marks[i])) << i;
        ASSERT_TRUE(cursor.Next(row));
        EXPECT_EQ(row.cells[0], ids[i]) << i;
        EXPECT_EQ(cursor.Mark().duplicatesBefore, marks[i].duplicatesBefore);
        // ... and the reading goes on from there.
        if (i + 1 < ids.size()) {
            ASSERT_TRUE(cursor.Next(row));
            EXPECT_EQ(row.cells[0], ids[i + 1]);
        }
    }
}

TEST_F(RecordCursorTest, MissingFilesBadKeysAndForeignFilesAreTold) {
    RecordCursor cursor;
    EXPECT_EQ(cursor.Open({DataFilePath(0, 35, 1), 35, 0, "", ""}), CursorOpen::Missing);
    const std::string path = Songs();
    EXPECT_EQ(cursor.Open({path, 22, 6, "", ""}), CursorOpen::BadKey);
    EXPECT_EQ(cursor.KeyCount(), 6);
    testing::WriteFile(dir.file("notes.bt6"), "Ceci n'est pas un fichier de la base.\r\n");
    EXPECT_EQ(cursor.Open({dir.file("notes.bt6"), 22, 0, "", ""}), CursorOpen::NotRecordFile);
    // Quiet: no box, no end of the program.
    EXPECT_TRUE(dialogs.messages.empty());
    EXPECT_TRUE(ends.empty());

    // A file of another layout's length is shown record by record, whole.
    ASSERT_EQ(cursor.Open({path, 20, 0, "", ""}), CursorOpen::Ok);
    EXPECT_EQ(cursor.Headings(), std::vector<std::string>{"Record"});
    CursorRow row;
    ASSERT_TRUE(cursor.Next(row));
    ASSERT_EQ(row.cells.size(), 1u);
    EXPECT_EQ(row.cells[0].substr(0, 8), "00000001");
}

TEST_F(RecordCursorTest, EveryFileIsCutIntoItsViewerColumns) {
    for (int f = 0; f < kCatalogueSize; ++f) {
        if (!CatalogueEntryFor(f).Exists()) continue;
        SCOPED_TRACE(f);
        const std::string path = MakeFile(f, {BlankRecord(f)});
        RecordCursor cursor;
        ASSERT_EQ(cursor.Open({path, f, 0, "", ""}), CursorOpen::Ok);
        EXPECT_EQ(cursor.Headings(), VisuDataInitCol(f));
        EXPECT_LE(cursor.Headings().size(), 136u);
        CursorRow row;
        ASSERT_TRUE(cursor.Next(row));
        EXPECT_EQ(row.cells.size(), cursor.Headings().size());
    }
}

TEST_F(RecordCursorTest, VersionRecordsOfFile21HaveTheirOwnColumns) {
    auto label = [](const std::string& header, const std::string& field, const std::string& text) {
        std::string record = BlankRecord(LayoutForRecord(21, header));
        RecordView view(LayoutForRecord(21, header), record);
        view.SetText("Header", header);
        view.SetText("Code", "00001");
        view.SetText(field, text);
        return record;
    };
    const std::string path =
        MakeFile(21, {label("CATEG", "Label", "Variétés"), label("VER", "Version", "3.4.0"),
                      label("VEE", "Version", "3.4.1")});
    RecordCursor cursor;
    ASSERT_EQ(cursor.Open({path, 21, 0, "", ""}), CursorOpen::Ok);
    EXPECT_EQ(cursor.Headings(), (std::vector<std::string>{"Header", "Code", "Label", "Data"}));
    CursorRow row;
    ASSERT_TRUE(cursor.Next(row));
    EXPECT_EQ(row.headings, nullptr);
    EXPECT_EQ(row.cells[2], "Variétés");
    for (const char* form : {"VEE", "VER"}) {
        ASSERT_TRUE(cursor.Next(row)) << form;
        ASSERT_NE(row.headings, nullptr) << form;
        EXPECT_EQ(*row.headings, Layout21Form(form).Headings());
        EXPECT_EQ(row.cells.size(), row.headings->size());
        EXPECT_EQ(row.cells[0], form);
    }
    EXPECT_FALSE(cursor.Next(row));
    EXPECT_EQ(cursor.Status(), btr::kEndOfFile);
}

}  // namespace
}  // namespace toverin
