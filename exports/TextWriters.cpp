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

// The element tags of the columns, held in one piece with room to spare after each, so that a
// tag is copied as one fixed-size move: most are under 32 bytes.
class ColumnTags {
  public:
    static constexpr size_t kMove = 32;

    ColumnTags() = default;
    explicit ColumnTags(const std::vector<std::string>& names) {
        for (const std::string& n : names) Add(n);
    }
    void Add(const std::string& name) {
        columns_.push_back({Put("<" + name + ">"), Put("</" + name + ">"), Put("<" + name + "/>")});
    }
    size_t size() const { return columns_.size(); }
    // The most a row of `columns` cells adds besides the cells' own text.
    size_t RowBytes() const { return bytes_; }

    struct Tag {
        uint32_t at, size;
    };
    struct Column {
        Tag open, close, empty;
    };
    const Column& operator[](size_t column) const { return columns_[column]; }

    // Copies `tag` to `to`, which has kMove bytes of room past it; returns the end.
    char* Copy(char* to, Tag tag) const {
        const char* from = text_.data() + tag.at;
        if (tag.size <= kMove)
            std::memcpy(to, from, kMove);
        else
            std::memcpy(to, from, tag.size);
        return to + tag.size;
    }

  private:
    Tag Put(const std::string& tag) {
        Tag placed{static_cast<uint32_t>(text_.size()), static_cast<uint32_t>(tag.size())};
        text_.insert(text_.end(), tag.begin(), tag.end());
        text_.resize(text_.size() + kMove);
        bytes_ += tag.size();
        return placed;
    }

    std::vector<char> text_;
    std::vector<Column> columns_;
    size_t bytes_ = 0;
};

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
        batch_.resize(kBatch + (kBatch >> 2));
    }

  private:
    static constexpr size_t kBatch = 64 << 10;
    static constexpr std::string_view kRowStart = "\n  <collection_element>";
    static constexpr std::string_view kRowEnd = "</collection_element>";

    bool WriteHeadings(const std::vector<std::string>& headings) override {
        tags_ = ColumnTags(XmlElementNames(headings));
        return true;
    }

    // One record per line; a blank cell is an empty element ("<Album/>"). The rows are put
    // together here and go to the writer some 64 kB at a time: the element names are valid names
    // made once per column, and a text that holds a character to escape goes through libxml2's
    // own escaping (most cells hold none, and would come out of it unchanged).
    bool WriteRow(const std::vector<std::string>& cells,
                  const std::vector<std::string>* headings) override {
        ColumnTags* tags = &tags_;
        if (headings) {
            if (*headings != rowHeadings_) {
                rowHeadings_ = *headings;
                rowTags_ = ColumnTags(XmlElementNames(*headings));
            }
            tags = &rowTags_;
        }
        while (tags->size() < cells.size()) tags->Add("Column_" + std::to_string(tags->size() + 1));
        size_t bound = kRowStart.size() + kRowEnd.size() + tags->RowBytes();
        for (const std::string& cell : cells) bound += cell.size();
        char* out = Room(bound);
        out = Append(out, kRowStart);
        for (size_t i = 0; i < cells.size(); ++i) {
            const ColumnTags::Column& column = (*tags)[i];
            const std::string& value = cells[i];
            if (value.empty()) {
                out = tags->Copy(out, column.empty);
            } else if (AsIs(value, kCleanUp | kXmlEscape)) {
                out = tags->Copy(out, column.open);
                out = Append(out, value);
                out = tags->Copy(out, column.close);
            } else {
                out = AppendEscaped(out, *tags, column, value);
            }
        }
        used_ = Append(out, kRowEnd) - batch_.data();
        return used_ < kBatch || Pass();
    }

    // Room for `bytes` more in the batch, with a tag's move to spare; where they go.
    char* Room(size_t bytes) {
        const size_t need = used_ + bytes + ColumnTags::kMove;
        if (need > batch_.size()) batch_.resize(std::max(need, 2 * batch_.size()));
        return batch_.data() + used_;
    }

    static char* Append(char* out, std::string_view text) {
        std::memcpy(out, text.data(), text.size());
        return out + text.size();
    }

    // A cell with a character to escape or to clean up; the escaped text may outgrow the room.
    char* AppendEscaped(char* out, const ColumnTags& tags, const ColumnTags::Column& column,
                        const std::string& value) {
        const std::string text = CellText(value);
        xmlChar* escaped = text.empty() ? nullptr : xmlEncodeSpecialChars(nullptr, X(text.c_str()));
        if (!escaped) return tags.Copy(out, column.empty);  // nothing left once cleaned up
        const std::string_view view(reinterpret_cast<const char*>(escaped));
        if (view.size() > value.size()) {  // the row was counted with the cell as it came
            const size_t at = static_cast<size_t>(out - batch_.data());
            batch_.resize(batch_.size() + view.size() - value.size());
            out = batch_.data() + at;
        }
        out = tags.Copy(out, column.open);
        out = Append(out, view);
        out = tags.Copy(out, column.close);
        xmlFree(escaped);
        return out;
    }

    // Hands the batch to the writer.
    bool Pass() {
        const int size = static_cast<int>(used_);
        used_ = 0;
        return xmlTextWriterWriteRawLen(writer_.get(), X(batch_.data()), size) >= 0;
    }

    bool Close() override {
        bool ended = Pass() && xmlTextWriterWriteRaw(writer_.get(), X("\n")) >= 0 &&
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
    ColumnTags tags_, rowTags_;
    std::vector<std::string> rowHeadings_;
    std::vector<char> batch_;
    size_t used_ = 0;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeTextWriter(ExportFormat format, const std::string& path,
                                             std::ostream* out, const ExportOptions& options) {
    if (format == ExportFormat::Xml) return std::make_unique<XmlWriter>(path, out, options);
    return std::make_unique<CsvWriter>(path, out, options);
}

}  // namespace toverin
