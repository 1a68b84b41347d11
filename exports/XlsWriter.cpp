// The Excel 97 (".xls") export: a BIFF8 workbook in an OLE2 compound file.
//
// A BIFF8 workbook stream is the globals (fonts, cell formats, one BOUNDSHEET per sheet giving
// the stream offset of that sheet, and the shared string table) followed by the sheets. Text
// cells are LABELSST records pointing into the shared string table. The globals must come first
// but are only known at the end, so the sheets and the string table are spooled to temporary
// files as the rows arrive, and Close assembles the stream: globals, string table, sheets.
// Memory stays flat whatever the number of rows.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "exports/CompoundFile.h"
#include "exports/Writers.h"

namespace toverin {

namespace {

constexpr uint32_t kXlsMaxRows = 65536;
constexpr size_t kXlsMaxColumns = 256;
constexpr size_t kMaxRecordData = 8224;  // BIFF8 limit of a record's data
constexpr size_t kMaxCellChars = 32767;
constexpr uint16_t kTextXf = 16;  // the cell format written after the 16 standard ones: text "@"

// BIFF8 record numbers.
enum : uint16_t {
    kBof = 0x0809,
    kEof = 0x000A,
    kCodepage = 0x0042,
    kWindow1 = 0x003D,
    kFont = 0x0031,
    kXf = 0x00E0,
    kStyle = 0x0293,
    kBoundSheet = 0x0085,
    kSst = 0x00FC,
    kContinue = 0x003C,
    kExtSst = 0x00FF,
    kDimensions = 0x0200,
    kWindow2 = 0x023E,
    kLabelSst = 0x00FD,
};

void AddRecord(std::string& out, uint16_t type, const std::string& data) {
    Add16(out, type);
    Add16(out, static_cast<uint16_t>(data.size()));
    out += data;
}

// UTF-8 to UTF-16 code units.
std::u16string Utf16(const std::string& utf8) {
    std::u16string units;
    units.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        auto c = static_cast<unsigned char>(utf8[i]);
        size_t length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        char32_t cp = length == 1 ? c : c & (0x3F >> (length - 1));
        for (size_t k = 1; k < length && i + k < utf8.size(); ++k)
            cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        i += length;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            units += static_cast<char16_t>(0xD800 + (cp >> 10));
            units += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            units += static_cast<char16_t>(cp);
        }
    }
    return units;
}

bool Latin1(const std::u16string& units) {
    for (char16_t u : units)
        if (u > 0xFF) return false;
    return true;
}

// A short string as the BOUNDSHEET and FONT records hold it: 8-bit length, flags, characters.
std::string ShortString(const std::string& ascii) {
    std::string s;
    s += static_cast<char>(ascii.size());
    s += '\0';  // 8-bit characters
    return s + ascii;
}

using Spool = OwnedFile;

Spool NewSpool() {
    Spool spool(std::tmpfile());
    if (spool) std::setvbuf(spool.get(), nullptr, _IOFBF, 1 << 20);
    return spool;
}

// The shared string table, spooled: an SST record continued by CONTINUE records, each at most
// 8,224 bytes of data. A string's three-byte header never straddles two records; its characters
// may, and the continuation then starts with the string's flags byte again. Short strings
// repeat in a column (codes, types, flags), so a bounded map gives them one entry each.
class SharedStrings {
  public:
    SharedStrings() : spool_(NewSpool()) { record_.assign(8, '\0'); }  // the counts, set at End

    bool Good() const { return spool_ != nullptr && good_; }

    uint32_t Add(const std::string& text) {
        ++references_;
        const bool shareable = text.size() <= 64;
        if (shareable) {
            auto found = known_.find(text);
            if (found != known_.end()) return found->second;
        }
        uint32_t index = unique_++;
        if (shareable && known_.size() < (1u << 16)) known_.emplace(text, index);
        Write(Utf16(text), index);
        return index;
    }

    // Flushes the last record and writes the counts into the first; the spool's size.
    uint64_t End() {
        Flush();
        std::string counts;
        Add32(counts, references_);
        Add32(counts, unique_);
        good_ = good_ && std::fseek(spool_.get(), 4, SEEK_SET) == 0 &&
                std::fwrite(counts.data(), 1, 8, spool_.get()) == 8 &&
                std::fseek(spool_.get(), 0, SEEK_END) == 0 && std::fflush(spool_.get()) == 0;
        return size_;
    }

    std::FILE* File() const { return spool_.get(); }

    // The EXTSST record's data: strings per bucket and, per bucket, where its first string lies
    // (its stream offset, `sstOffset` being where the table starts, and its offset in its record).
    // Empty when the table is too large for the record's 16-bit bucket size.
    std::string ExtSst(uint64_t sstOffset) const {
        if (stride_ > 0xFFFF) return "";
        std::string data;
        Add16(data, static_cast<uint16_t>(stride_));
        for (const Bucket& b : buckets_) {
            Add32(data, static_cast<uint32_t>(sstOffset + b.spoolOffset));
            Add16(data, b.recordOffset);
            Add16(data, 0);
        }
        return data;
    }

  private:
    struct Bucket {
        uint64_t spoolOffset;
        uint16_t recordOffset;
    };

    void Write(const std::u16string& units, uint32_t index) {
        const bool narrow = Latin1(units);
        const size_t charSize = narrow ? 1 : 2;
        if (record_.size() + 3 + charSize > kMaxRecordData) Flush();
        NoteBucket(index);
        Add16(record_, static_cast<uint16_t>(units.size()));
        record_ += static_cast<char>(narrow ? 0 : 1);
        size_t i = 0;
        while (i < units.size()) {
            size_t room = (kMaxRecordData - record_.size()) / charSize;
            if (room == 0) {
                Flush();
                record_ += static_cast<char>(narrow ? 0 : 1);
                continue;
            }
            for (size_t end = std::min(units.size(), i + room); i < end; ++i) {
                if (narrow) {
                    record_ += static_cast<char>(units[i]);
                } else {
                    Add16(record_, units[i]);
                }
            }
        }
    }

    // Buckets of the EXTSST index: every `stride_`-th string, at most 128 buckets, the stride
    // doubling (and every other bucket dropped) when they would be more.
    void NoteBucket(uint32_t index) {
        if (index % stride_ != 0) return;
        if (buckets_.size() == 128) {
            for (size_t i = 0; i < 64; ++i) buckets_[i] = buckets_[2 * i];
            buckets_.resize(64);
            stride_ *= 2;
            if (index % stride_ != 0) return;
        }
        buckets_.push_back({size_ + 4 + record_.size(), static_cast<uint16_t>(4 + record_.size())});
    }

    void Flush() {
        std::string header;
        Add16(header, size_ == 0 ? kSst : kContinue);
        Add16(header, static_cast<uint16_t>(record_.size()));
        good_ = good_ && std::fwrite(header.data(), 1, 4, spool_.get()) == 4 &&
                std::fwrite(record_.data(), 1, record_.size(), spool_.get()) == record_.size();
        size_ += 4 + record_.size();
        record_.clear();
    }

    Spool spool_;
    bool good_ = true;
    std::string record_;  // the record being filled
    uint64_t size_ = 0;   // bytes flushed to the spool
    uint32_t references_ = 0, unique_ = 0;
    std::unordered_map<std::string, uint32_t> known_;
    uint32_t stride_ = 8;
    std::vector<Bucket> buckets_;
};

std::string Bof(uint16_t kind) {
    std::string data;
    Add16(data, 0x0600);  // BIFF8
    Add16(data, kind);    // 0x0005 workbook globals, 0x0010 worksheet
    Add16(data, 0x0DBB);  // build
    Add16(data, 0x07CC);  // year
    Add32(data, 0);
    Add32(data, 0x00000006);  // lowest version able to read the file
    std::string record;
    AddRecord(record, kBof, data);
    return record;
}

std::string Xf(bool style, uint16_t format) {
    std::string data;
    Add16(data, 0);  // font 0
    Add16(data, format);
    Add16(data, style ? 0xFFF5 : 0x0001);  // locked; a style has no parent (0xFFF)
    data += '\x20';                        // bottom-aligned
    data += '\0';
    data += '\0';
    data += static_cast<char>(style ? 0xF4 : (format ? 0x04 : 0x00));  // attributes set here
    Add32(data, 0);                                                    // borders
    Add32(data, 0);
    Add16(data, 0x20C0);  // pattern colours: system foreground and background
    return data;
}

// The globals before the string table; the sheets' offsets are those given.
std::string GlobalsHead(const std::vector<std::string>& sheetNames,
                        const std::vector<uint32_t>& sheetOffsets) {
    std::string out = Bof(0x0005);
    std::string data;
    Add16(data, 1200);  // code page: UTF-16
    AddRecord(out, kCodepage, data);

    data.clear();
    for (uint16_t v : {0, 0, 0x3A5C, 0x2250, 0x0038, 0, 0, 1, 0x0258}) Add16(data, v);
    AddRecord(out, kWindow1, data);

    data.clear();
    Add16(data, 200);     // 10 points
    Add16(data, 0);       // plain
    Add16(data, 0x7FFF);  // automatic colour
    Add16(data, 400);     // normal weight
    Add16(data, 0);
    data += std::string(4, '\0');
    data += ShortString("Arial");
    for (int i = 0; i < 4; ++i) AddRecord(out, kFont, data);  // fonts 0..3 (4 does not exist)

    for (int i = 0; i < 15; ++i) AddRecord(out, kXf, Xf(true, 0));
    AddRecord(out, kXf, Xf(false, 0));
    AddRecord(out, kXf, Xf(false, 49));  // kTextXf: the built-in text format "@"

    data.clear();
    Add16(data, 0x8000);  // built-in style of XF 0
    data += '\0';         // "Normal"
    data += '\xFF';
    AddRecord(out, kStyle, data);

    for (size_t i = 0; i < sheetNames.size(); ++i) {
        data.clear();
        Add32(data, sheetOffsets[i]);
        data += '\0';  // visible
        data += '\0';  // worksheet
        data += ShortString(sheetNames[i]);
        AddRecord(out, kBoundSheet, data);
    }
    return out;
}

class XlsWriter final : public ExportWriter {
  public:
    XlsWriter(const std::string& path, const ExportOptions& options)
        : ExportWriter(ExportFormat::Xls, path, options), sheets_(NewSpool()) {
        const uint32_t asked = Options().rowsPerSheet;
        rowsPerSheet_ = asked == 0 || asked > kXlsMaxRows ? kXlsMaxRows : std::max(asked, 2u);
        if (!sheets_ || !strings_.Good()) Fail("cannot create the spool files of the workbook");
    }

  private:
    struct Sheet {
        std::string name;
        uint64_t spoolOffset;
    };

    bool WriteHeadings(const std::vector<std::string>& headings) override {
        headings_ = headings;
        return true;
    }

    bool WriteRow(const std::vector<std::string>& cells, const std::vector<std::string>*) override {
        if (sheetList_.empty() || row_ == rowsPerSheet_) {
            if (!NewSheet()) return false;
        }
        return Cells(cells);
    }

    bool NewSheet() {
        if (!sheetList_.empty() && !EndSheet()) return false;
        uint64_t offset = static_cast<uint64_t>(std::ftell(sheets_.get()));
        sheetList_.push_back(
            {Options().sheetPrefix + std::to_string(sheetList_.size() + 1), offset});
        if (sheetList_.size() > 1)
            Log("Sheet " + sheetList_.back().name + " started after " + std::to_string(Rows()) +
                " rows");
        std::string head = Bof(0x0010);
        dimensionsAt_ = offset + head.size() + 4;
        AddRecord(head, kDimensions, std::string(14, '\0'));  // filled in by EndSheet
        row_ = 0;
        columns_ = 0;
        return Put(head) && (headings_.empty() || Cells(headings_));
    }

    bool Cells(const std::vector<std::string>& cells) {
        if (cells.size() > kXlsMaxColumns)
            return Fail("an .xls sheet holds 256 columns, the row has " +
                        std::to_string(cells.size()));
        std::string records;
        for (size_t col = 0; col < cells.size(); ++col) {
            std::string text = CellText(cells[col]);
            if (text.empty()) continue;  // a blank cell has no record
            if (text.size() > kMaxCellChars && Utf16(text).size() > kMaxCellChars)
                return Fail("a cell of row " + std::to_string(Rows() + 1) +
                            " is longer than the 32,767 characters of an Excel cell");
            Add16(records, kLabelSst);
            Add16(records, 10);
            Add16(records, static_cast<uint16_t>(row_));
            Add16(records, static_cast<uint16_t>(col));
            Add16(records, kTextXf);
            Add32(records, strings_.Add(text));
        }
        columns_ = std::max(columns_, cells.size());
        ++row_;
        return Put(records);
    }

    bool EndSheet() {
        std::string tail;
        std::string data;
        Add16(data, sheetList_.size() == 1 ? 0x06B6 : 0x00B6);  // the first one selected
        Add16(data, 0);                                         // top row
        Add16(data, 0);                                         // left column
        Add16(data, 0x40);                                      // grid line colour: automatic
        data += std::string(10, '\0');
        AddRecord(tail, kWindow2, data);
        AddRecord(tail, kEof, "");
        if (!Put(tail)) return false;

        std::string dimensions;
        Add32(dimensions, 0);
        Add32(dimensions, row_);  // last row + 1
        Add16(dimensions, 0);
        Add16(dimensions, static_cast<uint16_t>(columns_));
        Add16(dimensions, 0);
        std::FILE* f = sheets_.get();
        long end = std::ftell(f);
        return std::fseek(f, static_cast<long>(dimensionsAt_), SEEK_SET) == 0 && Put(dimensions) &&
               std::fseek(f, end, SEEK_SET) == 0;
    }

    bool Put(const std::string& bytes) {
        if (std::fwrite(bytes.data(), 1, bytes.size(), sheets_.get()) == bytes.size()) return true;
        return Fail(std::string("cannot write the spool of the sheets: ") + std::strerror(errno));
    }

    bool Close() override {
        if (sheetList_.empty() && !NewSheet())
            return false;  // an export without rows has its headings
        if (!EndSheet() || std::fflush(sheets_.get()) != 0) return false;
        const uint64_t sheetsSize = static_cast<uint64_t>(std::ftell(sheets_.get()));
        const uint64_t sstSize = strings_.End();
        if (!strings_.Good()) return Fail("cannot write the spool of the shared strings");

        std::vector<std::string> names;
        std::vector<uint32_t> offsets(sheetList_.size(), 0);
        for (const Sheet& s : sheetList_) names.push_back(s.name);
        const uint64_t headSize = GlobalsHead(names, offsets).size();
        std::string tail;
        std::string extSst = strings_.ExtSst(headSize);
        if (!extSst.empty()) AddRecord(tail, kExtSst, extSst);
        AddRecord(tail, kEof, "");
        const uint64_t globalsSize = headSize + sstSize + tail.size();
        if (globalsSize + sheetsSize > cfb::kMaxStreamSize)
            return Fail("the workbook would exceed the 2 GB of an .xls file: use .xlsx");
        for (size_t i = 0; i < sheetList_.size(); ++i)
            offsets[i] = static_cast<uint32_t>(globalsSize + sheetList_[i].spoolOffset);
        const std::string head = GlobalsHead(names, offsets);

        Spool out(std::fopen(WorkPath().c_str(), "wb"));
        if (!out) return Fail("cannot create " + WorkPath() + ": " + std::strerror(errno));
        std::setvbuf(out.get(), nullptr, _IOFBF, 1 << 20);
        std::string error;
        std::vector<cfb::Piece> pieces = {{&head, nullptr, head.size()},
                                          {nullptr, strings_.File(), sstSize},
                                          {&tail, nullptr, tail.size()},
                                          {nullptr, sheets_.get(), sheetsSize}};
        if (!cfb::WriteSingleStream(out.get(), "Workbook", pieces, error)) return Fail(error);
        if (std::fclose(out.release()) != 0)
            return Fail("cannot write " + WorkPath() + ": " + std::strerror(errno));
        Log("Workbook of " + std::to_string(sheetList_.size()) + " sheet(s)");
        return true;
    }

    Spool sheets_;
    SharedStrings strings_;
    std::vector<std::string> headings_;
    std::vector<Sheet> sheetList_;
    uint32_t rowsPerSheet_ = kXlsMaxRows;
    uint32_t row_ = 0;  // rows written in the current sheet
    size_t columns_ = 0;
    uint64_t dimensionsAt_ = 0;
};

}  // namespace

std::unique_ptr<ExportWriter> MakeXlsWriter(const std::string& path, const ExportOptions& options) {
    return std::make_unique<XlsWriter>(path, options);
}

}  // namespace toverin
