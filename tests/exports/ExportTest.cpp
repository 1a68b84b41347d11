// The exports read back by readers that are not ours: xlrd for ".xls", openpyxl for ".xlsx" and
// Python's XML parser, through tests/support/check_export.py.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "exports/Export.h"
#include "tests/support/ExportReadBack.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::ReadBack;
using testing::Rows;
using testing::WorkbookJson;
using Sheet = testing::ExpectedSheet;

bool Export(ExportFormat format, const std::string& path, const std::vector<std::string>& headings,
            const Rows& rows, const ExportOptions& options = {}) {
    auto out = OpenExport(format, path, options);
    out->Headings(headings);
    for (const auto& row : rows) out->AddRow(row);
    bool ok = out->Finish();
    EXPECT_EQ(out->Message(), "");
    return ok;
}

std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

const std::vector<std::string> kHeadings = {"SongId", "Titre", "N°",  "Zip Code", "Adv_Manag.",
                                            "N°",     "Code",  "Qté", "Filler"};

// Rows with what a record file holds: accents, "€" and "œ" (no Latin-1 form), blanks between
// filled cells, numbers kept as text with their leading zeros, a blank row, and texts long
// enough to be continued over several records of the string table.
Rows SampleRows(int count) {
    Rows rows;
    for (int i = 0; i < count; ++i) {
        std::string n = std::to_string(i);
        std::string id = std::string(8 - std::min<size_t>(8, n.size()), '0') + n;
        rows.push_back({id, "Café crème n°" + n, "", "00042", "Hélène & <Cie> \"live\"",
                        i % 3 ? "" : "1 000,50 €", i % 5 ? "A" : "œuvre " + n, "0", "x" + n});
    }
    rows[1] = {"", "", "", "", "", "", "", "", ""};
    rows[2][8] = std::string(9000, 'L') + "fin";
    rows[3][8] = std::string(4000, 'a') + "€" + std::string(4100, 'b');
    rows[4][1] = "  blancs autour  ";
    return rows;
}

class WorkbookExportTest : public ::testing::TestWithParam<ExportFormat> {
  protected:
    testing::TempDir dir;
};

TEST_P(WorkbookExportTest, SeventyThousandRowsReadBackOverTwoSheetsWithTheSameTextCells) {
    const ExportFormat format = GetParam();
    const std::string kind = ExportExtension(format);
    const std::string path = dir.file("Morceaux." + kind);
    ExportOptions options;
    options.logFolder = dir.folder();
    // ".xls" sheets end at 65,536 rows by themselves; an ".xlsx" one is told to.
    if (format == ExportFormat::Xlsx) options.rowsPerSheet = 65536;
    const Rows rows = SampleRows(70000);
    ASSERT_TRUE(Export(format, path, kHeadings, rows, options));

    // The heading row opens each sheet: 65,535 rows on the first, the other 4,465 on the second.
    Sheet first{"Feuil1", {kHeadings}}, second{"Feuil2", {kHeadings}};
    first.rows.insert(first.rows.end(), rows.begin(), rows.begin() + 65535);
    second.rows.insert(second.rows.end(), rows.begin() + 65535, rows.end());
    EXPECT_EQ(ReadBack(kind, path, WorkbookJson({first, second}), dir), "same cells");

    // Nothing but the workbook and its log is left in the folder.
    EXPECT_EQ(Entries(dir.folder()),
              (std::vector<std::string>{"ExportExcel.Log", "Morceaux." + kind, "expected.json"}));
    std::string log = testing::ReadFile(dir.file("ExportExcel.Log"));
    EXPECT_NE(log.find("Export " + kind + " started on "), std::string::npos) << log;
    EXPECT_NE(log.find("Sheet Feuil2 started after 65535 rows"), std::string::npos) << log;
    EXPECT_NE(log.find("Export ended: 70000 rows, "), std::string::npos) << log;
}

TEST_P(WorkbookExportTest, SmallAndEmptyWorkbooksOpen) {
    const ExportFormat format = GetParam();
    const std::string kind = ExportExtension(format);
    const std::string small = dir.file("petit." + kind);
    ASSERT_TRUE(Export(format, small, {"Code", "Libellé"}, {{"007", "Légère"}}));
    EXPECT_EQ(ReadBack(kind, small,
                       WorkbookJson({{"Feuil1", {{"Code", "Libellé"}, {"007", "Légère"}}}}), dir),
              "same cells");

    // A range that holds no record still gives a workbook with its headings.
    const std::string empty = dir.file("vide." + kind);
    ASSERT_TRUE(Export(format, empty, {"Date", "Ecarts"}, {}));
    EXPECT_EQ(ReadBack(kind, empty, WorkbookJson({{"Feuil1", {{"Date", "Ecarts"}}}}), dir),
              "same cells");
}

INSTANTIATE_TEST_SUITE_P(Excel, WorkbookExportTest,
                         ::testing::Values(ExportFormat::Xls, ExportFormat::Xlsx),
                         [](const auto& info) { return std::string(ExportExtension(info.param)); });

TEST(XmlExportTest, RowsReadBackWithElementNamesMadeFromTheHeadings) {
    testing::TempDir dir;
    const std::string path = dir.file("Clients.xml");
    ExportOptions options;
    options.logFolder = dir.folder();
    auto out = OpenExport(ExportFormat::Xml, path, options);
    out->Headings({"Code", "N°", "Zip Code", "Adv_Manag.", "N°", "#Broad", "1st", "xmlData", "",
                   "IdSysTiers:_0"});
    out->AddRow(
        {"00042", "Hélène & <Cie> \"live\"", "", "75001", "a\tb", "x", "y", "z", "w", "bell\x07"});
    // A row of another form names its cells itself; a cell beyond the names gets a column name.
    std::vector<std::string> other = {"Header", "Version"};
    out->AddRow({"VER", "3.4", "extra"}, &other);
    ASSERT_TRUE(out->Finish()) << out->Message();

    std::string expected =
        "{\"rows\":[["
        "[\"Code\",\"00042\"],[\"N_\",\"Hélène & <Cie> \\\"live\\\"\"],[\"Zip_Code\",\"\"],"
        "[\"Adv_Manag.\",\"75001\"],[\"N__2\",\"a\\tb\"],[\"_Broad\",\"x\"],[\"_1st\",\"y\"],"
        "[\"_xmlData\",\"z\"],[\"_\",\"w\"],[\"IdSysTiers__0\",\"bell\"]],"
        "[[\"Header\",\"VER\"],[\"Version\",\"3.4\"],[\"Column_3\",\"extra\"]]]}";
    EXPECT_EQ(ReadBack("xml", path, expected, dir), "same cells");
    std::string text = testing::ReadFile(path);
    EXPECT_EQ(text.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root_element>\n"
                         "  <collection_element><Code>00042</Code><N_>Hélène &amp; &lt;Cie&gt; "
                         "&quot;live&quot;</N_>"
                         "<Zip_Code/>",
                         0),
              0u)
        << text.substr(0, 200);
    EXPECT_NE(testing::ReadFile(dir.file("ExportXML.Log")).find("Export ended: 2 rows"),
              std::string::npos);
}

// Rows go to the XML writer in batches of many rows: rows across batch ends, a cell whose
// escaping outgrows the room the row was given, and a form's rows among the others come out whole.
TEST(XmlExportTest, ThousandsOfRowsReadBackWholeAcrossTheWritersBatches) {
    testing::TempDir dir;
    const std::string path = dir.file("Historique.xml");
    const std::vector<std::string> headings = {"Date", "Titre", "Album", "Note"};
    const std::vector<std::string> form = {"Header", "Version"};
    auto out = OpenExport(ExportFormat::Xml, path);
    out->Headings(headings);
    std::string expected = "{\"rows\":[";
    const std::string amps(20000, '&');
    for (int i = 0; i < 6000; ++i) {
        std::string n = std::to_string(i);
        std::vector<std::string> cells = {"2026" + n, "Café <" + n + "> \"crème\"", "",
                                          i % 7 ? "A" : "x\x01y"};
        std::vector<std::string> read = {cells[0], cells[1], "", i % 7 ? "A" : "xy"};
        if (i == 2500) cells[2] = read[2] = amps;  // 100 kB once escaped
        if (i % 1000 == 999) {
            ASSERT_TRUE(out->AddRow({"VER", n, "œ"}, &form));
            expected += "[[\"Header\",\"VER\"],[\"Version\"," + testing::Json(n) +
                        "],[\"Column_3\",\"œ\"]],";
        }
        ASSERT_TRUE(out->AddRow(cells));
        expected += "[";
        for (size_t c = 0; c < headings.size(); ++c) {
            expected +=
                (c ? ",[" : "[") + testing::Json(headings[c]) + "," + testing::Json(read[c]) + "]";
        }
        expected += i == 5999 ? "]" : "],";
    }
    expected += "]}";
    ASSERT_TRUE(out->Finish()) << out->Message();
    EXPECT_EQ(ReadBack("xml", path, expected, dir), "same cells");
}

TEST(XmlExportTest, ElementNamesAreValidUniqueAndStable) {
    EXPECT_EQ(XmlElementNames({"Name", "Name", "Name_2", "Name", " Title ", "Récurring", "Ass_#",
                               "Mono/Stereo", "Multi-Ville", "XML", "-x", ".y", "Date Creat."}),
              (std::vector<std::string>{"Name", "Name_2", "Name_2_2", "Name_3", "Title",
                                        "Récurring", "Ass__", "Mono_Stereo", "Multi-Ville", "_XML",
                                        "_-x", "_.y", "Date_Creat."}));
}

TEST(CsvExportTest, WritesTheDumpsSemicolonSeparatedLines) {
    std::ostringstream out;
    auto csv = OpenExportStream(ExportFormat::Csv, out);
    csv->Headings({"Code", "Titre"});
    csv->AddRow({"00001", "Rock; Roll \"live\""});
    csv->AddRow({"00002", std::string("Caf\xc3\xa9\0\0", 7)});  // the padding's NULs dropped
    csv->AddRow({"00003", "bad \xff byte"});
    ASSERT_TRUE(csv->Finish());
    EXPECT_EQ(out.str(),
              "Code;Titre\n00001;\"Rock; Roll \"\"live\"\"\"\n00002;Café\n00003;bad ? byte\n");
    EXPECT_EQ(csv->Rows(), 3u);
}

// An export replaces its target only when it is complete: abandoned, failed or never finished,
// it leaves the file that was there byte for byte and no temporary file behind.
TEST(ExportSafetyTest, AnUnfinishedExportLeavesTheTargetAsItWas) {
    testing::TempDir dir;
    const std::string target = dir.file("export.xls");
    const std::string before = "the user's own workbook\x01\x02";
    for (ExportFormat format :
         {ExportFormat::Csv, ExportFormat::Xml, ExportFormat::Xls, ExportFormat::Xlsx}) {
        SCOPED_TRACE(ExportExtension(format));
        testing::WriteFile(target, before);
        {
            auto out = OpenExport(format, target, {dir.folder()});
            out->Headings({"A", "B"});
            for (int i = 0; i < 30000; ++i) out->AddRow({"1", "2"});  // a few pieces deflated
            out->Abandon();
            EXPECT_FALSE(out->AddRow({"3", "4"}));
            EXPECT_FALSE(out->Finish());
            EXPECT_EQ(out->Message(), "export cancelled");
        }
        {
            auto out = OpenExport(format, target, {dir.folder()});
            out->Headings({"A", "B"});
            out->AddRow({"1", "2"});
        }  // destroyed without Finish
        EXPECT_EQ(testing::ReadFile(target), before);

        auto out = OpenExport(format, target, {dir.folder()});
        out->AddRow({"1", "2"});
        EXPECT_FALSE(out->Headings({"A", "B"}));  // headings come first or not at all
        EXPECT_FALSE(out->Finish());
        EXPECT_EQ(testing::ReadFile(target), before);
    }
    EXPECT_EQ(Entries(dir.folder()),
              (std::vector<std::string>{"ExportExcel.Log", "ExportXML.Log", "export.xls"}));
    EXPECT_NE(testing::ReadFile(dir.file("ExportExcel.Log")).find("Err: export cancelled"),
              std::string::npos);

    // A folder that does not exist: the failure is told, nothing is created.
    for (ExportFormat format :
         {ExportFormat::Csv, ExportFormat::Xml, ExportFormat::Xls, ExportFormat::Xlsx}) {
        SCOPED_TRACE(ExportExtension(format));
        auto out = OpenExport(format, dir.file("missing/export.out"));
        out->Headings({"A"});
        out->AddRow({"1"});
        EXPECT_FALSE(out->Finish());
        EXPECT_FALSE(out->Message().empty());
    }
    EXPECT_FALSE(fs::exists(dir.file("missing")));

    // Too many columns for an ".xls" sheet.
    auto wide = OpenExport(ExportFormat::Xls, dir.file("wide.xls"));
    EXPECT_FALSE(wide->AddRow(std::vector<std::string>(257, "x")));
    EXPECT_FALSE(wide->Finish());
    EXPECT_NE(wide->Message().find("256 columns"), std::string::npos) << wide->Message();
    EXPECT_FALSE(fs::exists(dir.file("wide.xls")));
}

}  // namespace
}  // namespace toverin
