// CSV and XML exports. Both write to a stream: a file of their own, or the stream they are given
// (toverinctl's standard output).
#include <libxml/xmlwriter.h>

#include <cstring>
#include <fstream>
#include <vector>

#include "exports/Writers.h"

namespace toverin {

namespace {

// Where a text export writes: its own file (the work path) or a stream it is lent.
class TextOutput {
  public:
    TextOutput(const std::string& path, std::ostream* lent) : out_(lent) {
        if (out_) return;
        file_.rdbuf()->pubsetbuf(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        file_.open(path, std::ios::binary | std::ios::trunc);
        out_ = &file_;
    }
    bool Good() const { return out_->good(); }
    std::ostream& Stream() { return *out_; }
    bool Close() {
        out_->flush();
        bool good = out_->good();
        if (out_ == &file_) {
            file_.close();
            good = good && !file_.fail();
        }
        return good;
    }

  private:
    std::vector<char> buffer_ = std::vector<char>(1 << 20);
    std::ofstream file_;
    std::ostream* out_;
};

// ---- CSV: ';' between fields, a field holding ';' or '"' quoted with its quotes doubled.

void AppendCsvField(std::string& line, const std::string& value) {
    bool plain = true;
    for (char c : value) {
        auto u = static_cast<unsigned char>(c);
        plain = plain && u >= 0x20 && u < 0x80 && c != ';' && c != '"';
    }
    if (plain) {
        line += value;
        return;
    }
    std::string text = CellText(value);
    if (text.find_first_of(";\"") == std::string::npos) {
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
        line_.clear();
        for (size_t i = 0; i < values.size(); ++i) {
            if (i > 0) line_ += ';';
            AppendCsvField(line_, values[i]);
        }
        line_ += '\n';
        output_.Stream().write(line_.data(), static_cast<std::streamsize>(line_.size()));
        return output_.Good();
    }

    TextOutput output_;
    std::string line_;
};

// ---- XML through libxml2's text writer, which escapes the text and declares the encoding.

int WriteToStream(void* context, const char* buffer, int length) {
    auto* out = static_cast<std::ostream*>(context);
    out->write(buffer, length);
    return out->good() ? length : -1;
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
            xmlOutputBufferCreateIO(WriteToStream, CloseNothing, &output_.Stream(), nullptr);
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
                AppendCell(extraTags_[0], cells[i]);
            } else {
                AppendCell((*tags)[i], cells[i]);
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

    void AppendCell(const Tags& tags, const std::string& value) {
        bool plain = true, special = false;
        for (char c : value) {
            auto u = static_cast<unsigned char>(c);
            plain = plain && u >= 0x20 && u < 0x80;
            special = special || c == '&' || c == '<' || c == '>' || c == '"';
        }
        const std::string text = plain ? std::string() : CellText(value);
        const std::string& cell = plain ? value : text;
        if (cell.empty()) {
            row_ += tags.empty;
            return;
        }
        row_ += tags.open;
        if (special || !plain) {
            xmlChar* escaped = xmlEncodeSpecialChars(nullptr, X(cell.c_str()));
            row_ += reinterpret_cast<const char*>(escaped);
            xmlFree(escaped);
        } else {
            row_ += cell;
        }
        row_ += tags.close;
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
