#include "store/engine/KeyLayout.h"

#include <algorithm>
#include <cstring>

namespace toverin::engine {

namespace {

constexpr int16_t kBadPageSize = 24;
constexpr int16_t kBadKeyCount = 26;
constexpr int16_t kBadKeyPosition = 27;
constexpr int16_t kBadRecordLength = 28;
constexpr int16_t kBadKeyLength = 29;
constexpr int kMaxSegments = 9;  // what the 160-byte creation buffer can describe

}  // namespace

int16_t KeyLayout::Parse(const void* buffer, size_t size, KeyLayout& out) {
    if (size < 16) return btr::kDataBufferTooShort;
    btr::PbTBtrFileBuf fileBuf{};
    std::memcpy(&fileBuf, buffer, std::min(size, sizeof fileBuf));
    if (fileBuf.RecLen == 0) return kBadRecordLength;
    if (fileBuf.PageSize == 0 || fileBuf.PageSize % 512 != 0) return kBadPageSize;
    if (fileBuf.IndxCnt == 0 || fileBuf.IndxCnt > kMaxSegments) return kBadKeyCount;

    KeyLayout layout;
    int segment = 0;
    for (int k = 0; k < fileBuf.IndxCnt; ++k) {
        KeyDef key;
        for (;;) {
            if (segment >= kMaxSegments) return kBadKeyCount;
            if (16 + 16 * static_cast<size_t>(segment + 1) > size) return btr::kDataBufferTooShort;
            const btr::KeySpec& s = fileBuf.Keys[segment++];
            if (s.position == 0 || s.position > fileBuf.RecLen) return kBadKeyPosition;
            if (s.length == 0 || s.position - 1 + s.length > fileBuf.RecLen) return kBadKeyLength;
            if (key.segments.empty()) {
                key.duplicates = (s.flags & btr::kKeyDuplicates) != 0;
                key.modifiable = (s.flags & btr::kKeyModifiable) != 0;
            }
            Segment seg{static_cast<uint16_t>(s.position - 1), s.length,
                        (s.flags & btr::kKeyCaseInsensitive) != 0};
            key.caseInsensitive |= seg.caseInsensitive;
            key.length += seg.length;
            key.segments.push_back(seg);
            if ((s.flags & btr::kKeySegmented) == 0) break;
        }
        if (key.length > 255) return kBadKeyLength;  // must fit a key buffer
        layout.keys.push_back(std::move(key));
    }
    fileBuf.RecordCount = 0;
    layout.fileBuf = fileBuf;
    layout.recordLength = fileBuf.RecLen;
    layout.segmentCount = segment;
    // Leave nothing beyond the used segments, so Stat returns what Create was given.
    std::memset(reinterpret_cast<char*>(&layout.fileBuf) + layout.FileBufSize(), 0,
                sizeof layout.fileBuf - layout.FileBufSize());
    out = std::move(layout);
    return btr::kSuccess;
}

void BuildStoredKey(const KeyDef& key, const char* record, std::string& out) {
    out.resize(key.length);
    char* p = out.data();
    for (const Segment& s : key.segments) {
        std::memcpy(p, record + s.offset, s.length);
        if (s.caseInsensitive) {
            for (uint16_t i = 0; i < s.length; ++i)
                p[i] = static_cast<char>(UpperCase1252(static_cast<unsigned char>(p[i])));
        }
        p += s.length;
    }
}

void CopyRecordKey(const KeyDef& key, const char* record, char* out) {
    char* p = out;
    for (const Segment& s : key.segments) {
        std::memcpy(p, record + s.offset, s.length);
        p += s.length;
    }
}

void NormalizeSearchKey(const KeyDef& key, const char* value, std::string& out) {
    out.assign(value, key.length);
    if (!key.caseInsensitive) return;
    size_t at = 0;
    for (const Segment& s : key.segments) {
        if (s.caseInsensitive) {
            for (uint16_t i = 0; i < s.length; ++i)
                out[at + i] =
                    static_cast<char>(UpperCase1252(static_cast<unsigned char>(out[at + i])));
        }
        at += s.length;
    }
}

}  // namespace toverin::engine
