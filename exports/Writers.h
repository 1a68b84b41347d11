// The concrete writers behind OpenExport, one per format, and what they share.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "exports/Export.h"

namespace toverin {

// CSV or XML to `path`, or to `out` when it is given.
std::unique_ptr<ExportWriter> MakeTextWriter(ExportFormat format, const std::string& path,
                                             std::ostream* out, const ExportOptions& options);
std::unique_ptr<ExportWriter> MakeXlsWriter(const std::string& path, const ExportOptions& options);
std::unique_ptr<ExportWriter> MakeXlsxWriter(const std::string& path, const ExportOptions& options);

// What a byte of a cell asks of a writer. Most cells are printable ASCII without a character
// that means something to the format, and are copied as they are.
enum ByteNeeds : uint8_t {
    kCleanUp = 1,    // a control character or a byte of a multi-byte character: see CellText
    kCsvQuote = 2,   // ';' or '"' in a CSV field
    kXmlEscape = 4,  // '&', '<', '>' or '"' in XML text
};

inline constexpr std::array<uint8_t, 256> kByteNeeds = [] {
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
inline bool AsIs(std::string_view text, uint8_t needs) {
    for (char c : text) {
        if (kByteNeeds[static_cast<unsigned char>(c)] & needs) return false;
    }
    return true;
}

// Little-endian numbers appended to a binary record.
inline void Add16(std::string& b, uint16_t v) {
    b += static_cast<char>(v & 0xFF);
    b += static_cast<char>(v >> 8);
}
inline void Add32(std::string& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b += static_cast<char>((v >> (8 * i)) & 0xFF);
}
inline void Add64(std::string& b, uint64_t v) {
    Add32(b, static_cast<uint32_t>(v));
    Add32(b, static_cast<uint32_t>(v >> 32));
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using OwnedFile = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace toverin
