#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {
namespace {

TEST(RecordViewText, PadsCutsAndConvertsThroughWindows1252) {
    std::string record = BlankRecord(22);
    RecordView song(22, record);
    song.SetText("Title", "Où es-tu, Célestine ?");
    // One byte per accented letter in the record, UTF-8 again when read for the screen.
    EXPECT_EQ(song.Raw("Title").size(), 40u);
    EXPECT_EQ(song.Raw("Title").substr(0, 2), "O\xf9");
    EXPECT_EQ(song.Text("Title"), "O\xf9 es-tu, C\xe9lestine ?");
    EXPECT_EQ(song.Utf8("Title"), "Où es-tu, Célestine ?");

    song.SetText("Category", "ROCK-ET-PLUS");  // cut to five characters
    EXPECT_EQ(song.Raw("Category"), "ROCK-");
    // The neighbours of a written field are untouched.
    EXPECT_EQ(song.Raw("Lot"), "     ");
    EXPECT_EQ(song.Raw("Group"), "     ");
    EXPECT_EQ(record.size(), 900u);

    song.SetText("SecondText", "Radio edit");
    EXPECT_EQ(song.Raw("Filler1"), "Radio edit          ");
    song.SetText("Zones", "22222");
    EXPECT_EQ(song.Text("ZonesDiffusion_5_5"), "22222");
    song.SetText("Title", "€uro ☃");  // the euro sign exists in Windows-1252, the snowman not
    EXPECT_EQ(song.Text("Title"), "\x80uro ?");
    song.SetRaw("Title", "");
    EXPECT_EQ(song.Text("Title"), "");
}

TEST(RecordViewText, RepeatedHeadingsAreAddressedByOccurrence) {
    std::string record = BlankRecord(33);
    RecordView history(33, record);
    history.SetText("Date", "20260301", 0);
    history.SetText("Date", "20260302", 1);
    history.SetText("Date", "20260303", 2);
    history.SetText("hhmmss", "091500", 1);
    EXPECT_EQ(record.substr(0, 8), "20260301");
    EXPECT_EQ(history.Text("Date", 2), "20260303");
    EXPECT_EQ(history.Text("hhmmss", 0), "");
    EXPECT_EQ(history.Text("hhmmss", 1), "091500");
    EXPECT_FALSE(history.Has("Date", 3));
    EXPECT_THROW(history.Text("Date", 3), std::invalid_argument);
    EXPECT_THROW(history.Text("Titel"), std::invalid_argument);
    // Headings with a trailing blank answer to the bare name.
    std::string songs = BlankRecord(34);
    RecordView view(34, songs);
    view.SetText("Category", "POP");
    EXPECT_EQ(view.Text("Category "), "POP");
}

TEST(RecordViewNumbers, ZeroPaddedSignedAndRefusedWhenTooWide) {
    std::string record = BlankRecord(35);
    RecordView event(35, record);
    EXPECT_EQ(event.Number("Sequence"), 0);
    ASSERT_TRUE(event.SetNumber("Sequence", 42));
    EXPECT_EQ(event.Raw("Sequence"), "000042");
    EXPECT_EQ(event.Raw("MM") + event.Raw("SS") + event.Raw("NN"), "000042");
    ASSERT_TRUE(event.SetNumber("Sequence", event.Number("Sequence") + 10000));
    EXPECT_EQ(record.substr(13, 6), "010042");
    EXPECT_FALSE(event.SetNumber("Sequence", 1000000));
    EXPECT_EQ(event.Number("Sequence"), 10042);  // unchanged
    ASSERT_TRUE(event.SetNumber("Duration", -75));
    EXPECT_EQ(event.Raw("Duration"), "-00075");
    EXPECT_EQ(event.Number("Duration"), -75);
    event.SetText("HH", "7");
    EXPECT_EQ(event.Number("HH"), 7);  // "7 " read as far as its digits go
    event.SetText("HH", "");
    EXPECT_EQ(event.Number("HH"), 0);
    ASSERT_TRUE(event.SetNumber("HH", 23));
    EXPECT_EQ(event.Text("HH"), "23");
}

TEST(RecordViewParts, EquivalenceSlotsAndDatesInParts) {
    std::string record = BlankRecord(46);
    RecordView row(46, record);
    ASSERT_TRUE(row.SetNumber("NoLig", 12));
    row.SetPart("SongId", 1, "MUS00042", 0);
    row.SetPart("SongId", 0, "CAT01", 2);
    EXPECT_EQ(record.substr(0, 5 + 13 * 3), "00012     MUS00042             CAT01        ");
    EXPECT_EQ(row.Part("SongId", 1, 0), "MUS00042");
    EXPECT_EQ(row.Part("SongId", 0, 0), "     ");
    EXPECT_THROW(row.Part("SongId", 2), std::invalid_argument);
    EXPECT_THROW(row.Part("NoLig", 0), std::invalid_argument);
    std::vector<std::string> columns = row.Columns();
    ASSERT_EQ(columns.size(), 27u);
    EXPECT_EQ(columns[0], "00012");
    EXPECT_EQ(columns[1], ",MUS00042");
    EXPECT_EQ(columns[2], ",");
    EXPECT_EQ(columns[3], "CAT01,");

    std::string spot = BlankRecord(6);
    RecordView view(6, spot);
    view.SetPart("React2_Date", 0, "2026");
    view.SetPart("React2_Date", 1, "03");
    view.SetPart("React2_Date", 2, "02");
    view.SetPart("Pos_Segment", 4, "7");
    std::vector<std::string> cut = view.Columns();
    const std::vector<std::string> headings = VisuDataInitCol(6);
    ASSERT_EQ(cut.size(), headings.size());
    std::map<std::string, std::string> byHeading;
    for (size_t i = 0; i < headings.size(); ++i) byHeading.emplace(headings[i], cut[i]);
    EXPECT_EQ(byHeading["React2_Date"], "2026/03/02//");
    EXPECT_EQ(byHeading["React1_Date"], "////");
    EXPECT_EQ(byHeading["Pos_Segment"], "00,00,00,00,7");
}

TEST(RecordViewColumns, CutFollowsTheHeadingsAndTheRecordsForm) {
    std::string label = BlankRecord(21);
    RecordView view(21, label);
    view.SetText("Header", "CATEG");
    view.SetText("Code", "ROCK");
    view.SetText("Label", "  Rock français");
    EXPECT_EQ(CutRecord(21, label),
              (std::vector<std::string>{"CATEG", "ROCK", "Rock français", ""}));

    std::string version = BlankRecord(21);
    RecordView(21, version).SetText("Header", "VER");
    RecordView ver(21, version);  // the header now picks the VER form
    EXPECT_EQ(ver.layout().form, "VER");
    ver.SetText("Version", "3.4.0");
    ver.SetText("Date", "20260302");
    std::vector<std::string> cut = CutRecord(21, version);
    std::vector<std::string> headings = HeadingsForRecord(21, version);
    ASSERT_EQ(cut.size(), headings.size());
    EXPECT_EQ(headings[3], "Version");
    EXPECT_EQ(cut[3], "3.4.0");
    EXPECT_EQ(cut[4], "20260302");

    for (int f : {0, 3, 17, 22, 35, 47, 49}) {
        std::string record = BlankRecord(f);
        EXPECT_EQ(CutRecord(f, record).size(), VisuDataInitCol(f).size()) << f;
    }
}

TEST(RecordViewKeys, KeyValuesAreBuiltFromTheRecordsFields) {
    std::string record = BlankRecord(35);
    RecordView event(35, record);
    event.SetText("Date", "20260302");
    ASSERT_TRUE(event.SetNumber("HH", 9));
    event.SetText("Rup", "R01");
    ASSERT_TRUE(event.SetNumber("Sequence", 123456));
    ASSERT_TRUE(event.SetNumber("NoLig_Hor", 17));
    EXPECT_EQ(KeyOf(35, 0, record), "2026030209R01123456");
    EXPECT_EQ(KeyOf(35, 1, record), "000017");
    EXPECT_EQ(KeyOf(35, 2, record), "2026030209123456");  // segmented: date + hour, sequence
    EXPECT_EQ(KeyOf(35, 3, record), "");

    std::string artist = BlankRecord(20);
    RecordView view(20, artist);
    view.SetText("Key", "B");
    view.SetText("Label", "Brassens Georges et les Copains");
    EXPECT_EQ(KeyOf(20, 3, artist), "BBrassens Georges et ");
    EXPECT_EQ(KeyOf(20, 2, artist).size(), 20u);

    std::string label = BlankRecord(21);
    RecordView(21, label).SetText("Header", "VOIX");
    RecordView(21, label).SetText("Code", "F01");
    EXPECT_EQ(KeyOf(21, 0, label), "VOIX F01  ");
}

TEST(RecordViewGuards, WrongLengthAndReadOnlyViewsAreRefused) {
    std::string shortRecord(10, ' ');
    EXPECT_THROW(RecordView(22, shortRecord), std::invalid_argument);
    std::string none;
    EXPECT_THROW(RecordView(36, none), std::invalid_argument);
    const std::string record = BlankRecord(22);
    RecordView reader(22, record);
    EXPECT_EQ(reader.Text("SongId"), "");
    RecordView& asWriter = reader;
    EXPECT_THROW(asWriter.SetText("SongId", "X"), std::logic_error);
}

}  // namespace
}  // namespace toverin
