// The ".xlsx" export: SpreadsheetML parts in a zip. Each sheet's XML is made row by row and
// deflated by a second thread as it goes (exports/ZipWriter); the small parts that name the
// sheets follow at the end, when their number is known.
#include <charconv>

#include "app/Text.h"
#include "exports/Writers.h"
#include "exports/ZipWriter.h"

namespace toverin {

namespace {

constexpr uint32_t kXlsxMaxRows = 1048576;
constexpr size_t kXlsxMaxColumns = 16384;

constexpr const char* kXmlDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\r\n";
constexpr const char* kMain = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
constexpr const char* kRelationships =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr const char* kPackageRelationships =
    "http://schemas.openxmlformats.org/package/2006/relationships";
constexpr const char* kContentType = "application/vnd.openxmlformats-officedocument.spreadsheetml.";

// One font, the two fills every workbook has, one border; style 0 the default, style 1 text
// ("@", number format 49), so that a cell stays text when it is edited: "00042" is not 42.
constexpr const char* kStyles =
    "<fonts count=\"1\"><font><sz val=\"11\"/><name val=\"Calibri\"/><family val=\"2\"/></font>"
    "</fonts><fills count=\"2\"><fill><patternFill patternType=\"none\"/></fill><fill>"
    "<patternFill patternType=\"gray125\"/></fill></fills><borders count=\"1\"><border><left/>"
    "<right/><top/><bottom/><diagonal/></border></borders><cellStyleXfs count=\"1\">"
    "<xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\"/></cellStyleXfs>"
    "<cellXfs count=\"2\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\" xfId=\"0\"/>"
    "<xf numFmtId=\"49\" fontId=\"0\" fillId=\"0\" borderId=\"0\" xfId=\"0\" "
    "applyNumberFormat=\"1\"/></cellXfs><cellStyles count=\"1\"><cellStyle name=\"Normal\" "
    "xfId=\"0\" builtinId=\"0\"/></cellStyles>";

// "A", "B", … "Z", "AA", … for column `col` counted from 0.
std::string ColumnName(size_t col) {
    std::string name;
    for (size_t n = col + 1; n > 0; n = (n - 1) / 26)
        name.insert(name.begin(), static_cast<char>('A' + (n - 1) % 26));
    return name;
}

class XlsxWriter final : public ExportWriter {
  public:
    XlsxWriter(const std::string& path, const ExportOptions& options)
        : ExportWriter(ExportFormat::Xlsx, path, options) {
        const uint32_t asked = Options().rowsPerSheet;
        rowsPerSheet_ = asked == 0 || asked > kXlsxMaxRows ? kXlsxMaxRows : std::max(asked, 2u);
        if (!zip_.Open(WorkPath())) Fail(zip_.Error());
    }

  private:
    bool WriteHeadings(const std::vector<std::string>& headings) override {
        headings_ = headings;
        return true;
    }

    bool WriteRow(const std::vector<std::string>& cells, const std::vector<std::string>*) override {
        if (sheets_ == 0 || row_ == rowsPerSheet_) {
            if (!NewSheet()) return false;
        }
        return Cells(cells);
    }

    bool NewSheet() {
        if (sheets_ > 0 && !EndSheet()) return false;
        ++sheets_;
        if (!zip_.Begin("xl/worksheets/sheet" + std::to_string(sheets_) + ".xml"))
            return Fail(zip_.Error());
        if (sheets_ > 1)
            Log("Sheet " + SheetName(sheets_) + " started after " + std::to_string(Rows()) +
                " rows");
        std::string& out = zip_.Text();
        out += kXmlDeclaration;
        out += "<worksheet xmlns=\"" + std::string(kMain) + "\" xmlns:r=\"" + kRelationships +
               "\"><sheetViews><sheetView ";
        if (sheets_ == 1) out += "tabSelected=\"1\" ";
        out +=
            "workbookViewId=\"0\"/></sheetViews><sheetFormatPr defaultRowHeight=\"15\"/>"
            "<sheetData>";
        row_ = 0;
        return headings_.empty() || Cells(headings_);
    }

    bool EndSheet() {
        zip_.Text() +=
            "</sheetData><pageMargins left=\"0.7\" right=\"0.7\" top=\"0.75\" "
            "bottom=\"0.75\" header=\"0.3\" footer=\"0.3\"/></worksheet>";
        return zip_.End() || Fail(zip_.Error());
    }

    // A row of inline text cells: `<c r="B7" s="1" t="inlineStr"><is><t>…</t></is></c>`; a
    // blank cell is not written at all.
    bool Cells(const std::vector<std::string>& cells) {
        if (cells.size() > kXlsxMaxColumns)
            return Fail("an .xlsx sheet holds 16,384 columns, the row has " +
                        std::to_string(cells.size()));
        while (columns_.size() < cells.size()) columns_.push_back(ColumnName(columns_.size()));
        char number[12];
        const auto [end, ec] = std::to_chars(number, number + sizeof number, row_ + 1);
        const std::string_view rowNumber(number, static_cast<size_t>(end - number));
        std::string& out = zip_.Text();
        out += "<row r=\"";
        out += rowNumber;
        out += "\">";
        for (size_t col = 0; col < cells.size(); ++col) {
            const std::string* text = &cells[col];
            if (text->empty()) continue;
            if (!AsIs(*text, kCleanUp | kXmlEscape)) {
                cleaned_ = CellText(*text);
                if (cleaned_.empty()) continue;
                cleaned_ = XmlEscaped(cleaned_);
                text = &cleaned_;
            }
            out += "<c r=\"";
            out += columns_[col];
            out += rowNumber;
            // Blanks at either end are the record's own and are kept.
            const bool blankEnd = text->front() == ' ' || text->front() == '\t' ||
                                  text->back() == ' ' || text->back() == '\t';
            out += blankEnd ? "\" s=\"1\" t=\"inlineStr\"><is><t xml:space=\"preserve\">"
                            : "\" s=\"1\" t=\"inlineStr\"><is><t>";
            out += *text;
            out += "</t></is></c>";
        }
        out += "</row>";
        ++row_;
        return zip_.Written() || Fail(zip_.Error());
    }

    std::string SheetName(int number) const {
        return Options().sheetPrefix + std::to_string(number);
    }

    bool Close() override {
        if (sheets_ == 0 && !NewSheet()) return false;  // an export without rows has its headings
        if (!EndSheet()) return false;
        std::string types = kXmlDeclaration + std::string("<Types xmlns=\"") +
                            "http://schemas.openxmlformats.org/package/2006/content-types\">"
                            "<Default Extension=\"rels\" ContentType=\"application/"
                            "vnd.openxmlformats-package.relationships+xml\"/>"
                            "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
                            "<Override PartName=\"/xl/workbook.xml\" ContentType=\"" +
                            kContentType + "sheet.main+xml\"/>";
        std::string sheets, links;
        for (int n = 1; n <= sheets_; ++n) {
            const std::string id = std::to_string(n);
            types += "<Override PartName=\"/xl/worksheets/sheet" + id + ".xml\" ContentType=\"" +
                     kContentType + "worksheet+xml\"/>";
            sheets += "<sheet name=\"" + XmlEscaped(SheetName(n)) + "\" sheetId=\"" + id +
                      "\" r:id=\"rId" + id + "\"/>";
            links += "<Relationship Id=\"rId" + id + "\" Type=\"" + kRelationships +
                     "/worksheet\" Target=\"worksheets/sheet" + id + ".xml\"/>";
        }
        types += "<Override PartName=\"/xl/styles.xml\" ContentType=\"" +
                 std::string(kContentType) + "styles+xml\"/></Types>";
        links += "<Relationship Id=\"rId" + std::to_string(sheets_ + 1) + "\" Type=\"" +
                 kRelationships + "/styles\" Target=\"styles.xml\"/>";
        const bool written =
            zip_.Add("xl/workbook.xml", kXmlDeclaration + std::string("<workbook xmlns=\"") +
                                            kMain + "\" xmlns:r=\"" + kRelationships +
                                            "\"><bookViews><workbookView/></bookViews><sheets>" +
                                            sheets + "</sheets></workbook>") &&
            zip_.Add("xl/_rels/workbook.xml.rels",
                     kXmlDeclaration + std::string("<Relationships xmlns=\"") +
                         kPackageRelationships + "\">" + links + "</Relationships>") &&
            zip_.Add("xl/styles.xml", kXmlDeclaration + std::string("<styleSheet xmlns=\"") +
                                          kMain + "\">" + kStyles + "</styleSheet>") &&
            zip_.Add("_rels/.rels", kXmlDeclaration + std::string("<Relationships xmlns=\"") +
                                        kPackageRelationships +
                                        "\"><Relationship Id=\"rId1\" Type=\"" + kRelationships +
                                        "/officeDocument\" Target=\"xl/workbook.xml\"/>"
                                        "</Relationships>") &&
            zip_.Add("[Content_Types].xml", types) && zip_.Close();
        if (!written) return Fail(zip_.Error());
        Log("Workbook of " + std::to_string(sheets_) + " sheet(s)");
        return true;
    }

    void Discard() override { zip_.Abandon(); }

    ZipWriter zip_;
    std::vector<std::string> headings_;
    std::vector<std::string> columns_;  // "A", "B", … as far as the widest row so far
    std::string cleaned_;               // the cell being written, once cleaned up and escaped
    uint32_t rowsPerSheet_ = kXlsxMaxRows;
    uint32_t row_ = 0;  // rows written in the current sheet
    int sheets_ = 0;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeXlsxWriter(const std::string& path,
                                             const ExportOptions& options) {
    return std::make_unique<XlsxWriter>(path, options);
}

}  // namespace toverin
