// CSV and XML exports. Both write to a stream: a file of their own, or the stream they are given
// (toverinctl's standard output).
#include <libxml/xmlwriter.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "exports/Writers.h"

namespace toverin {

namespace {

// Where a text export writes: its own file (the work path) or a stream it is lent. The writers
// put their text together in Pending() and it goes on to the stream a megabyte at a time: a file
// stream hands any piece of a kilobyte or more straight to the system, one call per piece, so
// that rows passed one by one would cost a system call each.
class TextOutput {
  public:
    static constexpr size_t kPiece = 1 << 20;

    TextOutput(const std::string& path, std::ostream* lent) : out_(lent) {
        pending_.reserve(kPiece + (64 << 10));
        if (out_) return;
        file_.open(path, std::ios::binary | std::ios::trunc);
        out_ = &file_;
    }
    bool Good() const { return out_->good(); }
    // The text not yet written; a writer appends to it, then calls Written.
    std::string& Pending() { return pending_; }
    bool Written() { return pending_.size() < kPiece || Flush(); }
    bool Close() {
        bool good = Flush();
        out_->flush();
        good = good && out_->good();
        if (out_ == &file_) {
            file_.close();
            good = good && !file_.fail();
        }
        return good;
    }

  private:
    bool Flush() {
        out_->write(pending_.data(), static_cast<std::streamsize>(pending_.size()));
        pending_.clear();
        return out_->good();
    }

    std::string pending_;
    std::ofstream file_;
    std::ostream* out_;
};

// What a byte of a cell asks of a writer. Most cells are printable ASCII without a character
// that means something to the format, and are copied as they are.
enum ByteNeeds : uint8_t {
    kCleanUp = 1,    // a control character or a byte of a multi-byte character: see CellText
    kCsvQuote = 2,   // ';' or '"' in a CSV field
    kXmlEscape = 4,  // '&', '<', '>' or '"' in XML text
};

constexpr std::array<uint8_t, 256> kByteNeeds = [] {
    std::array<uint8_t, 256> needs{};
    for (int c = 0; c < 256; ++c) needs[c] = c < 0x20 || c >= 0x80 ? kCleanUp : 0;
    needs[';'] |= kCsvQuote;
    needs['"'] |= kCsvQuote | kXmlEscape;
    needs['&'] |= kXmlEscape;
    needs['<'] |= kXmlEscape;
    needs['>'] |= kXmlEscape;
    return needs;
}();

// True when no byte of `text` needs any of `needs`.
bool AsIs(std::string_view text, uint8_t needs) {
    for (char c : text) {
        if (kByteNeeds[static_cast<unsigned char>(c)] & needs) return false;
    }
    return true;
}

// ---- CSV: ';' between fields, a field holding ';' or '"' quoted with its quotes doubled.

void AppendCsvField(std::string& line, const std::string& value) {
    if (AsIs(value, kCleanUp | kCsvQuote)) {
        line += value;
        return;
    }
    std::string text = CellText(value);
    if (AsIs(text, kCsvQuote)) {
        line += text;
        return;
    }
    line += '"';
    for (char c : text) {
        if (c == '"') line += '"';
        line += c;
    }
    line += '"';
}

class CsvWriter final : public ExportWriter {
  public:
    CsvWriter(const std::string& path, std::ostream* out, const ExportOptions& options)
        : ExportWriter(ExportFormat::Csv, path, options), output_(WorkPath(), out) {
        if (!output_.Good()) Fail("cannot create " + WorkPath() + ": " + std::strerror(errno));
    }

  private:
    bool WriteHeadings(const std::vector<std::string>& headings) override {
        return WriteLine(headings);
    }
    bool WriteRow(const std::vector<std::string>& cells, const std::vector<std::string>*) override {
        return WriteLine(cells);
    }
    bool Close() override { return output_.Close(); }

    bool WriteLine(const std::vector<std::string>& values) {
        std::string& line = output_.Pending();
        for (size_t i = 0; i < values.size(); ++i) {
            if (i > 0) line += ';';
            AppendCsvField(line, values[i]);
        }
        line += '\n';
        return output_.Written();
    }

    TextOutput output_;
};

// ---- XML through libxml2's text writer, which escapes the text and declares the encoding.

int WriteToOutput(void* context, const char* buffer, int length) {
    auto* out = static_cast<TextOutput*>(context);
    out->Pending().append(buffer, static_cast<size_t>(length));
    return out->Written() ? length : -1;
}

int CloseNothing(void*) {
    return 0;
}

const xmlChar* X(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

class XmlWriter final : public ExportWriter {
  public:
    XmlWriter(const std::string& path, std::ostream* out, const ExportOptions& options)
        : ExportWriter(ExportFormat::Xml, path, options), output_(WorkPath(), out) {
        if (!output_.Good()) {
            Fail("cannot create " + WorkPath() + ": " + std::strerror(errno));
            return;
        }
        xmlOutputBufferPtr buffer =
            xmlOutputBufferCreateIO(WriteToOutput, CloseNothing, &output_, nullptr);
        if (buffer) writer_.reset(xmlNewTextWriter(buffer));  // the writer owns the buffer
        bool started = writer_ &&
                       xmlTextWriterStartDocument(writer_.get(), "1.0", "UTF-8", nullptr) >= 0 &&
                       xmlTextWriterStartElement(writer_.get(), X("root_element")) >= 0;
        if (!started) Fail("cannot start the XML document");
    }

  private:
    bool WriteHeadings(const std::vector<std::string>& headings) override {
        tags_ = TagsOf(XmlElementNames(headings));
        return true;
    }

    // One record per line; a blank cell is an empty element ("<Album/>"). The row is put
    // together here and handed to the writer whole: the element names are valid names made
    // once per column, and a text that holds a character to escape goes through libxml2's own
    // escaping (most cells hold none, and would come out of it unchanged).
    bool WriteRow(const std::vector<std::string>& cells,
                  const std::vector<std::string>* headings) override {
        const std::vector<Tags>* tags = &tags_;
        if (headings) {
            if (*headings != rowHeadings_) {
                rowHeadings_ = *headings;
                rowTags_ = TagsOf(XmlElementNames(*headings));
            }
            tags = &rowTags_;
        }
        row_ = "\n  <collection_element>";
        for (size_t i = 0; i < cells.size(); ++i) {
            if (i >= tags->size()) {
                extraTags_ = TagsOf({"Column_" + std::to_string(i + 1)});
                AppendCell(row_, extraTags_[0], cells[i]);
            } else {
                AppendCell(row_, (*tags)[i], cells[i]);
            }
        }
        row_ += "</collection_element>";
        return xmlTextWriterWriteRawLen(writer_.get(), X(row_.c_str()),
                                        static_cast<int>(row_.size())) >= 0;
    }

    struct Tags {
        std::string open, close, empty;
    };

    static std::vector<Tags> TagsOf(const std::vector<std::string>& names) {
        std::vector<Tags> tags;
        for (const std::string& n : names)
            tags.push_back({"<" + n + ">", "</" + n + ">", "<" + n + "/>"});
        return tags;
    }

    static void AppendCell(std::string& out, const Tags& tags, const std::string& value) {
        if (value.empty()) {
            out += tags.empty;
        } else if (AsIs(value, kCleanUp | kXmlEscape)) {
            out.append(tags.open).append(value).append(tags.close);
        } else {
            AppendEscapedCell(out, tags, CellText(value));
        }
    }

    static void AppendEscapedCell(std::string& out, const Tags& tags, const std::string& text) {
        xmlChar* escaped = text.empty() ? nullptr : xmlEncodeSpecialChars(nullptr, X(text.c_str()));
        if (!escaped) {
            out += tags.empty;  // nothing left once the control characters are dropped
            return;
        }
        out.append(tags.open).append(reinterpret_cast<const char*>(escaped)).append(tags.close);
        xmlFree(escaped);
    }

    bool Close() override {
        bool ended = xmlTextWriterWriteRaw(writer_.get(), X("\n")) >= 0 &&
                     xmlTextWriterEndDocument(writer_.get()) >= 0;
        writer_.reset();  // flushes and closes the output buffer
        return output_.Close() && ended;
    }

    void Discard() override { writer_.reset(); }

    struct FreeWriter {
        void operator()(xmlTextWriter* w) const { xmlFreeTextWriter(w); }
    };

    TextOutput output_;  // outlives the writer, which flushes into it when freed
    std::unique_ptr<xmlTextWriter, FreeWriter> writer_;
    std::vector<Tags> tags_, rowTags_, extraTags_;
    std::vector<std::string> rowHeadings_;
    std::string row_;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeTextWriter(ExportFormat format, const std::string& path,
                                             std::ostream* out, const ExportOptions& options) {
    if (format == ExportFormat::Xml) return std::make_unique<XmlWriter>(path, out, options);
    return std::make_unique<CsvWriter>(path, out, options);
}

}  // namespace toverin
