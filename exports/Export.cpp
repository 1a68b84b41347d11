#include "exports/Export.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Log.h"
#include "exports/Writers.h"

namespace toverin {

namespace fs = std::filesystem;

const char* ExportExtension(ExportFormat format) {
    switch (format) {
        case ExportFormat::Csv:
            return "csv";
        case ExportFormat::Xml:
            return "xml";
        case ExportFormat::Xls:
            return "xls";
        case ExportFormat::Xlsx:
            return "xlsx";
    }
    return "";
}

std::optional<ExportFormat> ExportFormatNamed(std::string_view name) {
    for (ExportFormat f :
         {ExportFormat::Csv, ExportFormat::Xml, ExportFormat::Xls, ExportFormat::Xlsx}) {
        if (name == ExportExtension(f)) return f;
    }
    return std::nullopt;
}

const char* ExportLogName(ExportFormat format) {
    switch (format) {
        case ExportFormat::Xml:
            return "ExportXML.Log";
        case ExportFormat::Xls:
        case ExportFormat::Xlsx:
            return "ExportExcel.Log";
        case ExportFormat::Csv:
            break;
    }
    return "";
}

namespace {

// The temporary file an export writes before it is put in place: hidden, beside the target, so
// that the final rename stays on one file system.
std::string WorkPathFor(const std::string& target) {
    if (target.empty()) return "";
    fs::path path(target);
    return (path.parent_path() / ("." + path.filename().string() + ".tmp")).string();
}

}  // namespace

ExportWriter::ExportWriter(ExportFormat format, std::string target, const ExportOptions& options)
    : format_(format),
      target_(std::move(target)),
      workPath_(WorkPathFor(target_)),
      options_(options),
      startTick_(GetTickCount64()) {
    if (!target_.empty()) {
        Log("Export " + std::string(ExportExtension(format_)) + " started on " +
            FormatShortDate(AppClock().Now()) + ": " + target_);
    }
}

ExportWriter::~ExportWriter() {
    if (state_ == State::Done) return;
    // The concrete writer has closed its files by now; only the partial file remains.
    RemoveWork();
    if (!target_.empty()) Log("Export abandoned after " + std::to_string(rows_) + " rows");
}

bool ExportWriter::Fail(const std::string& message) {
    if (!failed_) {
        failed_ = true;
        message_ = message;
        Log("Err: " + message);
    }
    return false;
}

void ExportWriter::Log(const std::string& line) {
    const char* name = ExportLogName(format_);
    if (options_.logFolder.empty() || *name == '\0') return;
    std::ofstream log(fs::path(options_.logFolder) / name, std::ios::app | std::ios::binary);
    log << FormatLogLine(AppClock().Now(), -1, -1, -1, line) << "\n";
}

void ExportWriter::RemoveWork() {
    if (workPath_.empty()) return;
    std::error_code ec;
    fs::remove(workPath_, ec);
}

bool ExportWriter::Headings(const std::vector<std::string>& headings) {
    if (failed_) return false;
    if (state_ != State::Open) return Fail("the heading row comes once, before the rows");
    state_ = State::Rows;
    return WriteHeadings(headings) || Fail("cannot write the heading row");
}

bool ExportWriter::AddRow(const std::vector<std::string>& cells,
                          const std::vector<std::string>* headings) {
    if (failed_) return false;
    if (state_ == State::Done) return Fail("a row after the end of the export");
    state_ = State::Rows;
    if (!WriteRow(cells, headings)) return Fail("cannot write row " + std::to_string(rows_ + 1));
    ++rows_;
    return true;
}

bool ExportWriter::Finish() {
    if (state_ == State::Done) return !failed_;
    bool closed = !failed_ && Close();
    if (!closed) {
        Fail("cannot complete the file");
        Discard();
    }
    state_ = State::Done;
    if (failed_) {
        RemoveWork();
        return false;
    }
    if (!workPath_.empty()) {
        std::error_code ec;
        fs::rename(workPath_, target_, ec);
        if (ec) {
            RemoveWork();
            return Fail("cannot put the export in place as " + target_ + ": " + ec.message());
        }
        std::error_code sizeError;
        auto size = fs::file_size(target_, sizeError);
        Log("Export ended: " + std::to_string(rows_) + " rows, " +
            std::to_string(sizeError ? 0 : size) + " bytes, " +
            std::to_string(GetTickCount64() - startTick_) + " ms");
    }
    return true;
}

void ExportWriter::Abandon(const std::string& reason) {
    if (state_ == State::Done) return;
    Fail("export " + reason);
    Discard();
    RemoveWork();
    state_ = State::Done;
}

std::unique_ptr<ExportWriter> OpenExport(ExportFormat format, const std::string& path,
                                         const ExportOptions& options) {
    switch (format) {
        case ExportFormat::Csv:
        case ExportFormat::Xml:
            return MakeTextWriter(format, path, nullptr, options);
        case ExportFormat::Xls:
            return MakeXlsWriter(path, options);
        case ExportFormat::Xlsx:
            return MakeXlsxWriter(path, options);
    }
    return MakeTextWriter(ExportFormat::Csv, path, nullptr, options);
}

std::unique_ptr<ExportWriter> OpenExportStream(ExportFormat format, std::ostream& out) {
    return MakeTextWriter(format == ExportFormat::Xml ? ExportFormat::Xml : ExportFormat::Csv, "",
                          &out, ExportOptions{});
}

// ---- text of the cells

bool IsPlainText(std::string_view text) {
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u >= 0x80) return false;
    }
    return true;
}

std::string CellText(std::string_view utf8) {
    if (IsPlainText(utf8)) return std::string(utf8);
    std::string text;
    text.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        auto c = static_cast<unsigned char>(utf8[i]);
        if (c < 0x80) {
            if (c >= 0x20 || c == '\t') text += static_cast<char>(c);
            ++i;
            continue;
        }
        size_t length = c >= 0xF0 && c < 0xF5 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
        bool whole = length > 0 && i + length <= utf8.size();
        for (size_t k = 1; whole && k < length; ++k)
            whole = (static_cast<unsigned char>(utf8[i + k]) & 0xC0) == 0x80;
        if (whole) {
            text.append(utf8.substr(i, length));
            i += length;
        } else {
            text += '?';
            ++i;
        }
    }
    return text;
}

// ---- XML names

namespace {

char32_t DecodeAt(std::string_view text, size_t& i) {
    auto c = static_cast<unsigned char>(text[i]);
    size_t length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    char32_t cp = length == 1 ? c : c & (0x3F >> (length - 1));
    for (size_t k = 1; k < length && i + k < text.size(); ++k)
        cp = (cp << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    i += length;
    return cp;
}

// XML 1.0's NameStartChar, without ':' (a colon would read as a namespace prefix).
bool NameStartChar(char32_t c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
           (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0xEFFFF);
}

bool NameChar(char32_t c) {
    return NameStartChar(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

std::string XmlName(std::string_view heading) {
    size_t first = heading.find_first_not_of(' ');
    size_t last = heading.find_last_not_of(' ');
    std::string_view text =
        first == std::string_view::npos ? "" : heading.substr(first, last - first + 1);
    std::string name;
    bool firstChar = true;
    for (size_t i = 0; i < text.size();) {
        size_t at = i;
        char32_t c = DecodeAt(text, i);
        if (firstChar && !NameStartChar(c) && NameChar(c)) name += '_';
        name += NameChar(c) ? std::string(text.substr(at, i - at)) : "_";
        firstChar = false;
    }
    auto lower = [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); };
    bool reserved =
        name.size() >= 3 && lower(name[0]) == 'x' && lower(name[1]) == 'm' && lower(name[2]) == 'l';
    if (name.empty() || reserved) name.insert(0, "_");
    return name;
}

}  // namespace

std::vector<std::string> XmlElementNames(const std::vector<std::string>& headings) {
    std::vector<std::string> names;
    names.reserve(headings.size());
    auto taken = [&](const std::string& name) {
        for (const std::string& n : names)
            if (n == name) return true;
        return false;
    };
    for (const std::string& heading : headings) {
        std::string name = XmlName(heading);
        if (taken(name)) {
            int n = 2;
            while (taken(name + "_" + std::to_string(n))) ++n;
            name += "_" + std::to_string(n);
        }
        names.push_back(std::move(name));
    }
    return names;
}

}  // namespace toverin
