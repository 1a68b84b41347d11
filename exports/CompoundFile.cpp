#include "exports/CompoundFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace toverin::cfb {

namespace {

constexpr uint32_t kSectorSize = 512;
constexpr uint32_t kEntriesPerSector = kSectorSize / 4;  // FAT entries
constexpr uint32_t kHeaderDifatEntries = 109;
constexpr uint32_t kFreeSect = 0xFFFFFFFF;
constexpr uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr uint32_t kFatSect = 0xFFFFFFFD;
constexpr uint32_t kDifSect = 0xFFFFFFFC;
constexpr uint32_t kNoStream = 0xFFFFFFFF;
constexpr uint32_t kMiniStreamCutoff = 4096;

void Put16(std::string& b, size_t at, uint16_t v) {
    b[at] = static_cast<char>(v & 0xFF);
    b[at + 1] = static_cast<char>(v >> 8);
}

void Put32(std::string& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
}

uint32_t SectorsFor(uint64_t bytes) {
    return static_cast<uint32_t>((bytes + kSectorSize - 1) / kSectorSize);
}

// Where each part of the file lies, in sector numbers (the header is not a numbered sector).
struct Plan {
    uint32_t streamSectors = 0;
    uint32_t directorySector = 0;
    uint32_t firstFat = 0, fatSectors = 0;
    uint32_t firstDifat = 0, difatSectors = 0;

    uint32_t Total() const { return streamSectors + 1 + fatSectors + difatSectors; }
};

Plan PlanFor(uint64_t streamSize) {
    Plan p;
    p.streamSectors = SectorsFor(std::max<uint64_t>(streamSize, kMiniStreamCutoff));
    p.directorySector = p.streamSectors;
    // The FAT covers every sector, its own and the DIFAT's included: grow both until they fit.
    for (;;) {
        uint32_t fat = (p.Total() + kEntriesPerSector - 1) / kEntriesPerSector;
        uint32_t difat =
            fat > kHeaderDifatEntries
                ? (fat - kHeaderDifatEntries + kEntriesPerSector - 2) / (kEntriesPerSector - 1)
                : 0;
        if (fat == p.fatSectors && difat == p.difatSectors) break;
        p.fatSectors = fat;
        p.difatSectors = difat;
    }
    p.firstFat = p.directorySector + 1;
    p.firstDifat = p.firstFat + p.fatSectors;
    return p;
}

std::string Header(const Plan& p) {
    std::string h(kSectorSize, '\0');
    static const unsigned char kSignature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(h.data(), kSignature, sizeof kSignature);
    Put16(h, 0x18, 0x003E);  // minor version
    Put16(h, 0x1A, 0x0003);  // major version 3: 512-byte sectors
    Put16(h, 0x1C, 0xFFFE);  // little-endian
    Put16(h, 0x1E, 9);       // sector size 2^9
    Put16(h, 0x20, 6);       // mini sector size 2^6
    Put32(h, 0x2C, p.fatSectors);
    Put32(h, 0x30, p.directorySector);
    Put32(h, 0x38, kMiniStreamCutoff);
    Put32(h, 0x3C, kEndOfChain);  // no mini FAT
    Put32(h, 0x40, 0);
    Put32(h, 0x44, p.difatSectors ? p.firstDifat : kEndOfChain);
    Put32(h, 0x48, p.difatSectors);
    for (uint32_t i = 0; i < kHeaderDifatEntries; ++i)
        Put32(h, 0x4C + 4 * i, i < p.fatSectors ? p.firstFat + i : kFreeSect);
    return h;
}

void PutEntry(std::string& sector, int index, const std::string& name, uint8_t type, uint32_t child,
              uint32_t start, uint32_t size) {
    size_t at = static_cast<size_t>(index) * 128;
    for (size_t i = 0; i < name.size(); ++i)
        Put16(sector, at + 2 * i, static_cast<uint8_t>(name[i]));
    Put16(sector, at + 0x40, static_cast<uint16_t>(2 * (name.size() + 1)));
    sector[at + 0x42] = static_cast<char>(type);
    sector[at + 0x43] = 1;  // black
    Put32(sector, at + 0x44, kNoStream);
    Put32(sector, at + 0x48, kNoStream);
    Put32(sector, at + 0x4C, child);
    Put32(sector, at + 0x74, start);
    Put32(sector, at + 0x78, size);
}

std::string Directory(const std::string& streamName, uint32_t streamSize) {
    std::string sector(kSectorSize, '\0');
    PutEntry(sector, 0, "Root Entry", 5, 1, kEndOfChain, 0);
    PutEntry(sector, 1, streamName, 2, kNoStream, 0, streamSize);
    for (int unused = 2; unused < 4; ++unused) {
        size_t at = static_cast<size_t>(unused) * 128;
        Put32(sector, at + 0x44, kNoStream);
        Put32(sector, at + 0x48, kNoStream);
        Put32(sector, at + 0x4C, kNoStream);
    }
    return sector;
}

// The FAT entry of sector `s`.
uint32_t FatEntry(const Plan& p, uint32_t s) {
    if (s < p.streamSectors) return s + 1 == p.streamSectors ? kEndOfChain : s + 1;
    if (s == p.directorySector) return kEndOfChain;
    if (s >= p.firstFat && s < p.firstFat + p.fatSectors) return kFatSect;
    if (s >= p.firstDifat && s < p.firstDifat + p.difatSectors) return kDifSect;
    return kFreeSect;
}

class Output {
  public:
    Output(std::FILE* out, std::string& error) : out_(out), error_(error) {}
    bool Write(const char* data, size_t size) {
        if (std::fwrite(data, 1, size, out_) == size) return true;
        error_ = std::string("cannot write the workbook: ") + std::strerror(errno);
        return false;
    }
    bool Write(const std::string& bytes) { return Write(bytes.data(), bytes.size()); }

  private:
    std::FILE* out_;
    std::string& error_;
};

bool CopySpool(Output& out, const Piece& piece, std::string& error) {
    if (std::fseek(piece.spool, 0, SEEK_SET) != 0) {
        error = "cannot read back a spool file";
        return false;
    }
    std::vector<char> buffer(1 << 20);
    uint64_t left = piece.size;
    while (left > 0) {
        size_t chunk = static_cast<size_t>(std::min<uint64_t>(left, buffer.size()));
        if (std::fread(buffer.data(), 1, chunk, piece.spool) != chunk) {
            error = "cannot read back a spool file";
            return false;
        }
        if (!out.Write(buffer.data(), chunk)) return false;
        left -= chunk;
    }
    return true;
}

}  // namespace

bool WriteSingleStream(std::FILE* out, const std::string& streamName,
                       const std::vector<Piece>& pieces, std::string& error) {
    uint64_t size = 0;
    for (const Piece& piece : pieces) size += piece.size;
    if (size > kMaxStreamSize) {
        error = "the workbook would exceed the 2 GB of an .xls file";
        return false;
    }
    const Plan plan = PlanFor(size);
    Output o(out, error);
    if (!o.Write(Header(plan))) return false;

    for (const Piece& piece : pieces) {
        bool written = piece.memory ? o.Write(*piece.memory) : CopySpool(o, piece, error);
        if (!written) return false;
    }
    uint64_t padded = static_cast<uint64_t>(plan.streamSectors) * kSectorSize;
    if (!o.Write(std::string(static_cast<size_t>(padded - size), '\0'))) return false;
    // A stream under the cutoff would be looked for in the mini stream: its padding is part of it.
    uint64_t streamSize = std::max<uint64_t>(size, kMiniStreamCutoff);
    if (!o.Write(Directory(streamName, static_cast<uint32_t>(streamSize)))) return false;

    std::string sector(kSectorSize, '\0');
    for (uint32_t f = 0; f < plan.fatSectors; ++f) {
        for (uint32_t i = 0; i < kEntriesPerSector; ++i)
            Put32(sector, 4 * i, FatEntry(plan, f * kEntriesPerSector + i));
        if (!o.Write(sector)) return false;
    }
    // Each DIFAT sector lists 127 further FAT sectors and ends with the next DIFAT sector.
    uint32_t listed = kHeaderDifatEntries;
    for (uint32_t d = 0; d < plan.difatSectors; ++d) {
        for (uint32_t i = 0; i < kEntriesPerSector - 1; ++i, ++listed)
            Put32(sector, 4 * i, listed < plan.fatSectors ? plan.firstFat + listed : kFreeSect);
        Put32(sector, 4 * (kEntriesPerSector - 1),
              d + 1 < plan.difatSectors ? plan.firstDifat + d + 1 : kEndOfChain);
        if (!o.Write(sector)) return false;
    }
    return true;
}

}  // namespace toverin::cfb
