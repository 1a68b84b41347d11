#include <gtest/gtest.h>

#include <map>
#include <set>

#include "store/Catalogue.h"
#include "store/RecordLayout.h"

namespace toverin {
namespace {

std::vector<const RecordLayout*> EveryLayout() {
    std::vector<const RecordLayout*> all;
    for (int f = 0; f < kCatalogueSize; ++f) {
        if (CatalogueEntryFor(f).Exists()) all.push_back(&LayoutFor(f));
    }
    all.push_back(&Layout21Form("VER"));
    all.push_back(&Layout21Form("VEE"));
    return all;
}

std::string Where(const RecordLayout& l) {
    return std::to_string(l.fileNumber) + l.form;
}

TEST(LayoutCoverage, EveryRecordIsTiledExactlyByItsFields) {
    for (const RecordLayout* l : EveryLayout()) {
        SCOPED_TRACE(Where(*l));
        EXPECT_EQ(l->recordLength, CatalogueEntryFor(l->fileNumber).recordLength);
        uint32_t next = 0;
        for (const Field& f : l->fields) {
            EXPECT_EQ(f.offset, next) << f.name;  // no gap, no overlap
            EXPECT_GT(f.width, 0) << f.name;
            EXPECT_FALSE(f.name.empty());
            if (f.IsComposite()) {
                uint32_t sum = 0;
                for (uint16_t p : f.parts) sum += p;
                EXPECT_EQ(sum, f.width) << f.name;
            }
            if (f.kind == FieldKind::Date) {
                EXPECT_EQ(f.width, 8) << f.name;
            }
            next = f.End();
        }
        EXPECT_EQ(next, l->recordLength);
        for (const Field& a : l->aliases) {
            EXPECT_LE(a.End(), l->recordLength) << a.name;
            EXPECT_FALSE(a.shown);
        }
    }
    for (int empty : {8, 36, 50}) EXPECT_TRUE(LayoutFor(empty).fields.empty());
}

// A key segment must start where a field starts and end where a field ends; the one exception
// is a key over the first characters of a text (a title or a name longer than its index).
TEST(LayoutKeys, EverySegmentLandsOnFieldBoundaries) {
    std::set<std::pair<int, int>> prefixes;
    for (int f = 0; f < kCatalogueSize; ++f) {
        const RecordLayout& l = LayoutFor(f);
        if (l.fields.empty()) continue;
        std::map<int, const Field*> starts;
        std::set<int> ends;
        for (const Field& field : l.fields) {
            starts[field.offset] = &field;
            ends.insert(field.End());
        }
        for (const KeySegment& s : CatalogueEntryFor(f).segments) {
            int begin = s.position - 1;
            int end = begin + s.length;
            SCOPED_TRACE(std::to_string(f) + " key at " + std::to_string(s.position) + "/" +
                         std::to_string(s.length));
            ASSERT_TRUE(starts.count(begin));
            if (ends.count(end)) continue;
            const Field* field = starts[begin];
            EXPECT_EQ(field->kind, FieldKind::Text) << field->name;
            EXPECT_LT(end, field->End()) << field->name;
            prefixes.insert({f, s.position});
        }
    }
    // The keys that index the first characters of a longer text.
    std::set<std::pair<int, int>> expected = {{1, 9},   {2, 11},  {3, 9},   {4, 11},
                                              {6, 9},   {20, 16}, {21, 11}, {22, 24},
                                              {23, 51}, {24, 51}, {29, 19}};
    EXPECT_EQ(prefixes, expected);
}

TEST(LayoutKeys, KeyFieldsTheOperationsRelyOn) {
    auto at = [](int file, const char* name, int occurrence = 0) {
        const Field* f = LayoutFor(file).Find(name, occurrence);
        EXPECT_NE(f, nullptr) << file << " " << name;
        return f ? std::pair<int, int>(f->offset + 1, f->width) : std::pair<int, int>(0, 0);
    };
    using P = std::pair<int, int>;
    // File 35: date + hour + sequence is key 2; the sequence is the three two-digit fields.
    EXPECT_EQ(at(35, "Date"), P(1, 8));
    EXPECT_EQ(at(35, "HH"), P(9, 2));
    EXPECT_EQ(at(35, "Sequence"), P(14, 6));
    EXPECT_EQ(at(35, "NoLig_Hor"), P(253, 6));
    EXPECT_EQ(at(35, "EventKind").second, 3);
    EXPECT_EQ(at(35, "EventSubKind").second, 3);
    EXPECT_EQ(at(35, "SongCode").second, 8);
    EXPECT_EQ(at(35, "SecondCode").second, 8);
    EXPECT_EQ(at(35, "BreakTitle1").second, 13);
    EXPECT_EQ(at(35, "BreakTitle2").second, 10);
    EXPECT_EQ(at(35, "Title").second, 40);
    EXPECT_GE(at(35, "Artist").second, 20);
    // File 34: five dates and the sequence; file 33: three dates, the time, the sequence.
    for (int i = 0; i < 5; ++i) EXPECT_EQ(LayoutFor(34).Find("Date", i)->kind, FieldKind::Date);
    EXPECT_EQ(LayoutFor(34).Find("Date", 5), nullptr);
    EXPECT_EQ(at(34, "Sequence"), P(123, 6));
    EXPECT_EQ(at(34, "Title"), P(23, 40));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(LayoutFor(33).Find("Date", i)->kind, FieldKind::Date);
    EXPECT_EQ(at(33, "Sequence"), P(9, 6));
    EXPECT_EQ(at(33, "hhmmss"), P(30, 6));
    EXPECT_EQ(at(49, "Date"), P(1, 8));
    // File 22: code, title, second text, category, zones.
    EXPECT_EQ(at(22, "SongId"), P(1, 8));
    EXPECT_EQ(at(22, "Title"), P(24, 40));
    EXPECT_EQ(at(22, "SecondText").second, 20);
    EXPECT_EQ(at(22, "Category"), P(69, 5));
    EXPECT_EQ(at(22, "Zones").second, 5);
    // Labels of files 21, 23, 24, 26, 29 and the codes that go with them.
    EXPECT_EQ(at(21, "Header"), P(1, 5));
    EXPECT_EQ(at(21, "Code"), P(6, 5));
    EXPECT_EQ(at(21, "Label"), P(11, 30));
    EXPECT_EQ(at(23, "Title").second, 30);
    EXPECT_EQ(at(24, "Title").second, 30);
    EXPECT_EQ(at(24, "Category").second, 5);
    EXPECT_EQ(at(26, "Title").second, 30);
    EXPECT_EQ(at(26, "Artist").second, 10);
    EXPECT_EQ(at(26, "Category").second, 5);
    EXPECT_EQ(at(29, "Header"), P(1, 5));
    EXPECT_EQ(at(29, "Title"), P(19, 40));
    // File 46: row number then 26 slots of a category code and a song code.
    EXPECT_EQ(at(46, "NoLig"), P(1, 5));
    for (int i = 0; i < 26; ++i) {
        const Field* slot = LayoutFor(46).Find("SongId", i);
        ASSERT_NE(slot, nullptr);
        EXPECT_EQ(slot->offset, 5 + 13 * i);
        EXPECT_EQ(slot->parts, (std::vector<uint16_t>{5, 8}));
    }
    EXPECT_EQ(at(46, "Counter"), P(5 + 26 * 13 + 1, 4));
}

// The backup bounds history files by date as strings: the key it reads them by must begin
// with a date field, and the keys the duplication builds ("date + hour …") must begin with the
// date followed by the two-digit hour.
TEST(LayoutKeys, HistoryKeysBeginWithTheirDate) {
    for (int f = 0; f < kCatalogueSize; ++f) {
        if (!IsHistoryFile(f)) continue;
        const KeySegment first = KeysOf(f)[HistoryKeyNumber(f)].front();
        const Field* field = nullptr;
        for (const Field& candidate : LayoutFor(f).fields) {
            if (candidate.offset == first.position - 1) field = &candidate;
        }
        ASSERT_NE(field, nullptr) << f;
        EXPECT_EQ(field->kind, FieldKind::Date) << f << " " << field->name;
    }
    for (int f : {34, 35}) {
        const RecordLayout& l = LayoutFor(f);
        const Field* date = l.Find("Date");
        const Field* hour = l.Find(f == 35 ? "HH" : "hhmmss");
        EXPECT_EQ(date->offset + 1, KeysOf(f)[0].front().position) << f;
        EXPECT_EQ(hour->offset, date->End()) << f;
    }
}

TEST(LayoutViewer, ColumnCountsAndSharedLists) {
    const std::map<int, size_t> declared = {{22, 136}, {25, 78}, {46, 27},
                                            {47, 136}, {49, 49}, {3, 34}};
    for (auto [f, count] : declared) EXPECT_EQ(VisuDataInitCol(f).size(), count) << f;
    // The named fields of each file, counting a composite as one: the viewer shows these, and
    // the rest of the record as a last "Filler" column.
    const std::map<int, size_t> named = {
        {0, 4},   {1, 7},   {2, 2},   {4, 13},  {5, 25},  {6, 32},  {7, 21},  {10, 5},  {11, 13},
        {12, 15}, {13, 26}, {14, 14}, {15, 3},  {16, 3},  {17, 72}, {18, 16}, {19, 19}, {20, 45},
        {21, 4},  {23, 9},  {24, 9},  {26, 20}, {27, 12}, {28, 15}, {29, 5},  {30, 41}, {31, 8},
        {32, 3},  {33, 11}, {34, 15}, {35, 78}, {37, 26}, {38, 42}, {39, 13}, {40, 7},  {41, 10},
        {42, 8},  {43, 24}, {44, 33}, {45, 10}, {48, 2}};
    for (auto [f, count] : named) {
        std::vector<std::string> headings = VisuDataInitCol(f);
        if (headings.size() == count + 1) {
            EXPECT_EQ(headings.back(), "Filler") << f;
        } else {
            EXPECT_EQ(headings.size(), count) << f;
        }
    }
    EXPECT_EQ(VisuDataInitCol(9), VisuDataInitCol(0));
    EXPECT_EQ(VisuDataInitCol(0), (std::vector<std::string>{"Header", "Code", "Name", "Filler"}));
    EXPECT_EQ(VisuDataInitCol(8).size(), 16u);
    EXPECT_TRUE(VisuDataInitCol(36).empty());
    EXPECT_TRUE(VisuDataInitCol(50).empty());
    EXPECT_TRUE(VisuDataInitCol(-1).empty());
    std::vector<std::string> songs = VisuDataInitCol(22);
    EXPECT_EQ(songs[4], "Title");
    EXPECT_EQ(songs[62], "DateMessage ");
    EXPECT_EQ(songs[86], "Compo.");
    EXPECT_EQ(songs[90], "Subject");
    EXPECT_EQ(songs[91], "Compo.");  // the group repeats up to the 136th column
    EXPECT_EQ(songs[135], "Subject");
    std::vector<std::string> events = VisuDataInitCol(35);
    EXPECT_EQ(events.front(), "Date");
    EXPECT_EQ(events[59], "Filler");
    EXPECT_EQ(events.back(), "Artist");
}

TEST(LayoutForms, VerAndVeeRecordsOfFile21HaveTheirOwnLayouts) {
    std::string record = BlankRecord(21);
    EXPECT_EQ(&LayoutForRecord(21, record), &LayoutFor(21));
    record.replace(0, 5, "VER  ");
    const RecordLayout& ver = LayoutForRecord(21, record);
    EXPECT_EQ(ver.form, "VER");
    EXPECT_NE(ver.Find("Version"), nullptr);
    record.replace(0, 5, "VEE  ");
    EXPECT_EQ(LayoutForRecord(21, record).form, "VEE");
    record.replace(0, 5, "VERSA");  // a code table whose kind merely starts with the letters
    EXPECT_EQ(&LayoutForRecord(21, record), &LayoutFor(21));
    EXPECT_EQ(&LayoutForRecord(22, "VER"), &LayoutFor(22));
    // Both forms keep the header and code where the key expects them.
    for (const char* form : {"VER", "VEE"}) {
        const RecordLayout& l = Layout21Form(form);
        EXPECT_EQ(l.Find("Header")->offset, 0);
        EXPECT_EQ(l.Find("Code")->offset, 5);
    }
}

TEST(LayoutBlank, BlanksTextAndDatesZeroesNumbers) {
    std::string song = BlankRecord(22);
    ASSERT_EQ(song.size(), 900u);
    const RecordLayout& l = LayoutFor(22);
    EXPECT_EQ(song.substr(l.Find("Title")->offset, 40), std::string(40, ' '));
    EXPECT_EQ(song.substr(l.Find("BPM")->offset, 3), "000");
    EXPECT_EQ(song.substr(l.Find("DateFirstBroad")->offset, 8), std::string(8, ' '));
    std::string equivalence = BlankRecord(46);
    const RecordLayout& e = LayoutFor(46);
    EXPECT_EQ(equivalence.substr(e.Find("Counter")->offset, 9), "000000000");
    EXPECT_EQ(equivalence.substr(e.Find("SongId", 3)->offset, 13), std::string(13, ' '));
    EXPECT_TRUE(BlankRecord(36).empty());
}

}  // namespace
}  // namespace toverin
