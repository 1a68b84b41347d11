// The ".xlsx" export through libxlsxwriter in its constant-memory mode: each row goes to the
// sheet's temporary file as it is written, and the workbook is zipped together at Close.
#include <xlsxwriter.h>

#include "exports/Writers.h"

namespace toverin {

namespace {

constexpr uint32_t kXlsxMaxRows = 1048576;
constexpr size_t kXlsxMaxColumns = 16384;

class XlsxWriter final : public ExportWriter {
  public:
    XlsxWriter(const std::string& path, const ExportOptions& options)
        : ExportWriter(ExportFormat::Xlsx, path, options) {
        const uint32_t asked = Options().rowsPerSheet;
        rowsPerSheet_ = asked == 0 || asked > kXlsxMaxRows ? kXlsxMaxRows : std::max(asked, 2u);
        lxw_workbook_options settings{};
        settings.constant_memory = LXW_TRUE;
        settings.use_zip64 = LXW_TRUE;  // a large export may pass the 4 GB of a plain zip
        workbook_.reset(workbook_new_opt(WorkPath().c_str(), &settings));
        if (!workbook_) {
            Fail("cannot start the workbook");
            return;
        }
        // Every cell is text, and stays text when edited: "00042" is not the number 42.
        text_ = workbook_add_format(workbook_.get());
        format_set_num_format(text_, "@");
    }

  private:
    bool WriteHeadings(const std::vector<std::string>& headings) override {
        headings_ = headings;
        return true;
    }

    bool WriteRow(const std::vector<std::string>& cells, const std::vector<std::string>*) override {
        if (!sheet_ || row_ == rowsPerSheet_) {
            if (!NewSheet()) return false;
        }
        return Cells(cells);
    }

    bool NewSheet() {
        std::string name = Options().sheetPrefix + std::to_string(++sheets_);
        sheet_ = workbook_add_worksheet(workbook_.get(), name.c_str());
        if (!sheet_) return Fail("cannot add the sheet " + name);
        if (sheets_ > 1)
            Log("Sheet " + name + " started after " + std::to_string(Rows()) + " rows");
        row_ = 0;
        return headings_.empty() || Cells(headings_);
    }

    bool Cells(const std::vector<std::string>& cells) {
        if (cells.size() > kXlsxMaxColumns)
            return Fail("an .xlsx sheet holds 16,384 columns, the row has " +
                        std::to_string(cells.size()));
        for (size_t col = 0; col < cells.size(); ++col) {
            // Most cells are printable ASCII and go as they are; a blank one is not written.
            const std::string* text = &cells[col];
            if (!IsPlainText(*text)) {
                cleaned_ = CellText(*text);
                text = &cleaned_;
            }
            if (text->empty()) continue;
            lxw_error error = worksheet_write_string(sheet_, row_, static_cast<lxw_col_t>(col),
                                                     text->c_str(), text_);
            if (error != LXW_NO_ERROR)
                return Fail("row " + std::to_string(Rows() + 1) + ": " + lxw_strerror(error));
        }
        ++row_;
        return true;
    }

    bool Close() override {
        if (!sheet_ && !NewSheet()) return false;  // an export without rows has its headings
        lxw_error error = workbook_close(workbook_.release());  // frees the workbook
        if (error != LXW_NO_ERROR) return Fail(std::string("workbook: ") + lxw_strerror(error));
        Log("Workbook of " + std::to_string(sheets_) + " sheet(s)");
        return true;
    }

    void Discard() override { workbook_.reset(); }

    struct FreeWorkbook {
        void operator()(lxw_workbook* w) const { lxw_workbook_free(w); }
    };

    std::unique_ptr<lxw_workbook, FreeWorkbook> workbook_;
    lxw_format* text_ = nullptr;
    lxw_worksheet* sheet_ = nullptr;
    std::vector<std::string> headings_;
    std::string cleaned_;  // the cell being written, once cleaned up
    uint32_t rowsPerSheet_ = kXlsxMaxRows;
    uint32_t row_ = 0;
    int sheets_ = 0;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeXlsxWriter(const std::string& path,
                                             const ExportOptions& options) {
    return std::make_unique<XlsxWriter>(path, options);
}

}  // namespace toverin
