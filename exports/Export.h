// Writers of rows of text to the files a user takes to other programs: CSV (toverinctl's dump),
// XML (a "root_element" of "collection_element"s, one child element per column), Excel 97 ".xls"
// and ".xlsx". Rows arrive as UTF-8 text, cell by cell, and every cell is written as text, so
// that "00042" reads back as "00042" and not as the number 42.
//
// An export streams, so that a million rows take no more memory than ten:
//
//   std::string message;
//   auto out = OpenExport(ExportFormat::Xls, "/tmp/songs.xls", options);
//   out->Headings(headings);
//   for (...) if (!out->AddRow(cells)) break;
//   if (!out->Finish()) Report(out->Message());
//
// A file export is written beside its target under a temporary name and put in place by Finish:
// an export that fails or is abandoned (destroyed without Finish) leaves whatever was at the
// target as it was. The Excel and XML exports log their course to "ExportExcel.Log" and
// "ExportXML.Log" in the folder the options name.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace toverin {

enum class ExportFormat { Csv, Xml, Xls, Xlsx };

// "csv", "xml", "xls", "xlsx": the extension and the name toverinctl takes.
const char* ExportExtension(ExportFormat format);
std::optional<ExportFormat> ExportFormatNamed(std::string_view name);
// The log an export of this format writes: "ExportExcel.Log", "ExportXML.Log", "" for CSV.
const char* ExportLogName(ExportFormat format);

struct ExportOptions {
    // Folder of the export logs (the program's settings folder); empty writes no log.
    std::string logFolder;
    // Workbook sheets are named this followed by 1, 2, ...
    std::string sheetPrefix = "Feuil";
    // Rows of a sheet, heading row included, before the export goes on in a new sheet; 0 takes
    // the format's limit (65,536 for ".xls", 1,048,576 for ".xlsx").
    uint32_t rowsPerSheet = 0;
};

class ExportWriter {
  public:
    virtual ~ExportWriter();
    ExportWriter(const ExportWriter&) = delete;
    ExportWriter& operator=(const ExportWriter&) = delete;

    // The heading row, once, before the first row.
    bool Headings(const std::vector<std::string>& headings);
    // One row. `headings`, when given, names this row's cells where they differ from the heading
    // row (records of another form in the same file); the XML takes its element names from them.
    bool AddRow(const std::vector<std::string>& cells,
                const std::vector<std::string>* headings = nullptr);
    // Completes the file and puts it in place. False, with the reason in Message(), when any
    // step of the export failed.
    bool Finish();
    // Stops the export and removes what it wrote; the target is left as it was.
    void Abandon(const std::string& reason = "cancelled");

    bool Failed() const { return failed_; }
    // Why the export failed (English, for the log and the command line).
    const std::string& Message() const { return message_; }
    uint64_t Rows() const { return rows_; }
    const std::string& Target() const { return target_; }

  protected:
    ExportWriter(ExportFormat format, std::string target, const ExportOptions& options);

    virtual bool WriteHeadings(const std::vector<std::string>& headings) = 0;
    virtual bool WriteRow(const std::vector<std::string>& cells,
                          const std::vector<std::string>* headings) = 0;
    // Writes the end of the file and closes it.
    virtual bool Close() = 0;
    // Releases what the writer holds without completing the file.
    virtual void Discard() {}

    // Records a failure (once: the first reason is the one that counts) and returns false.
    bool Fail(const std::string& message);
    // Where a file writer writes: the temporary file beside the target ("" for a stream).
    const std::string& WorkPath() const { return workPath_; }
    const ExportOptions& Options() const { return options_; }
    // A line in the export's log.
    void Log(const std::string& line);

  private:
    enum class State { Open, Rows, Done };
    void RemoveWork();

    ExportFormat format_;
    std::string target_;
    std::string workPath_;
    ExportOptions options_;
    State state_ = State::Open;
    bool failed_ = false;
    std::string message_;
    uint64_t rows_ = 0;
    uint64_t startTick_ = 0;
};

// An export to the file `path`. Never null: a writer that could not start reports it through
// Failed() and Message(), and every later call returns false.
std::unique_ptr<ExportWriter> OpenExport(ExportFormat format, const std::string& path,
                                         const ExportOptions& options = {});
// A CSV or XML export to a stream (toverinctl's standard output); nothing is logged.
std::unique_ptr<ExportWriter> OpenExportStream(ExportFormat format, std::ostream& out);

// Text fit for any of the formats: control characters (a record's padding may hold NULs) dropped,
// a byte that is not UTF-8 replaced by '?'.
std::string CellText(std::string_view utf8);
// Printable ASCII only: a cell that CellText leaves as it is.
bool IsPlainText(std::string_view text);

// The XML element names of a row of headings. Each heading is trimmed; characters that cannot be
// in an XML name (blanks, "°", "#", "/", ":" …) become '_' while letters of any alphabet, digits,
// '_', '-' and '.' stay; a name that cannot start an element (a digit, '-', '.', a reserved "xml"
// start, or nothing at all) gets a leading '_'. A name already given to an earlier column gets
// "_2", "_3" … (the first number that makes it unique), so every column keeps an element of its
// own: "N°", "N°" become "N_", "N__2"; "Zip Code" becomes "Zip_Code"; "Adv_Manag." stays.
std::vector<std::string> XmlElementNames(const std::vector<std::string>& headings);

}  // namespace toverin
