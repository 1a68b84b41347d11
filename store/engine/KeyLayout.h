// A record file's layout as given at Create: record length and keys made of segments. Builds the
// stored key values (segments concatenated, case-insensitive segments upper-cased) that the
// SQLite indexes order by plain byte comparison.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/engine/Btrieve.h"

namespace toverin::engine {

struct Segment {
    uint16_t offset = 0;  // 0-based
    uint16_t length = 0;
    bool caseInsensitive = false;
};

struct KeyDef {
    std::vector<Segment> segments;
    uint16_t length = 0;  // sum of the segments' lengths
    bool duplicates = false;
    bool modifiable = false;
    bool caseInsensitive = false;  // any segment
};

struct KeyLayout {
    btr::PbTBtrFileBuf fileBuf{};  // exactly as given at Create (record count zeroed)
    uint16_t recordLength = 0;
    int segmentCount = 0;
    std::vector<KeyDef> keys;

    // Reads and checks a creation buffer of `size` bytes. Returns 0 or the status of the fault:
    // 22 buffer shorter than its segments, 24 page size, 26 key count, 27 segment position,
    // 28 record length, 29 segment length.
    static int16_t Parse(const void* buffer, size_t size, KeyLayout& out);
    // Bytes of the creation buffer that carry information: header and used segments.
    size_t FileBufSize() const { return 16 + 16 * static_cast<size_t>(segmentCount); }
};

// Windows-1252 upper-casing of one byte: a-z and the accented letters 0xE0..0xFE but 0xF7.
// A table, because every case-insensitive key of every record written goes through it.
inline constexpr std::array<unsigned char, 256> kUpperCase1252 = [] {
    std::array<unsigned char, 256> table{};
    for (int c = 0; c < 256; ++c) {
        bool lower = (c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7);
        table[c] = static_cast<unsigned char>(lower ? c - 0x20 : c);
    }
    return table;
}();
inline unsigned char UpperCase1252(unsigned char c) {
    return kUpperCase1252[c];
}

// The stored (ordered) value of `key` for a record: segments concatenated, case-insensitive
// ones upper-cased. `record` must hold the full record length.
void BuildStoredKey(const KeyDef& key, const char* record, std::string& out);
// The key as it appears in the record (segments concatenated, case kept), returned to callers:
// key.length bytes at `out`.
void CopyRecordKey(const KeyDef& key, const char* record, char* out);
// The stored form of a search value given by a caller: its first key-length bytes with the
// case-insensitive segments upper-cased. `value` holds at least key.length bytes.
void NormalizeSearchKey(const KeyDef& key, const char* value, std::string& out);

}  // namespace toverin::engine
