// A writer of OLE2 compound files (the container of Excel 97 workbooks) holding one stream.
// The stream arrives in pieces, from memory or from spool files, so that a stream of hundreds of
// megabytes is copied through and never held.
//
// Layout written, in 512-byte sectors: the header, the stream's sectors, one directory sector
// (the root entry and the stream), the allocation table (FAT) and, for a stream of more than
// about 7 MB, the extra sectors listing the FAT sectors (DIFAT). Streams under 4,096 bytes are
// padded to that size, so that no mini stream is needed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace toverin::cfb {

struct Piece {
    const std::string* memory = nullptr;  // bytes held in memory, or
    std::FILE* spool = nullptr;           // the first `size` bytes of a spool file
    uint64_t size = 0;
};

// The largest stream a version 3 compound file holds.
inline constexpr uint64_t kMaxStreamSize = 0x7FFFFFFF;

// Writes a compound file with one stream `streamName` (ASCII) made of `pieces` to `out`.
// False, with the reason in `error`, when a write or a spool read fails or the stream is too large.
bool WriteSingleStream(std::FILE* out, const std::string& streamName,
                       const std::vector<Piece>& pieces, std::string& error);

}  // namespace toverin::cfb
