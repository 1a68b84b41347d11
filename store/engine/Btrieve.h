// The record engine's single entry point, with the classic navigational record-manager
// signature, operation codes and statuses. Our engine implements it on SQLite (one database per
// record file); the access layer reaches it only through a function pointer of this type.
#pragma once

#include <cstdint>

extern "C" {

int16_t BTRCALL(uint16_t operation, void* positionBlock, void* dataBuffer, uint32_t* dataLength,
                void* keyBuffer, uint8_t keyLength, int8_t keyNumber);

typedef int16_t (*BtrCallFunction)(uint16_t, void*, void*, uint32_t*, void*, uint8_t, int8_t);
}

namespace toverin::btr {

inline constexpr int kPositionBlockSize = 128;

enum Operation : uint16_t {
    kOpen = 0,
    kClose = 1,
    kInsert = 2,
    kUpdate = 3,
    kDelete = 4,
    kGetEqual = 5,
    kGetNext = 6,
    kGetPrevious = 7,
    kGetGreater = 8,
    kGetGreaterOrEqual = 9,
    kGetLessThan = 10,
    kGetLessOrEqual = 11,
    kGetFirst = 12,
    kGetLast = 13,
    kCreate = 14,
    kStat = 15,
    kGetPosition = 22,  // the current record's position: 4 bytes (its row id, little-endian)
    kGetDirect = 23,    // the record at the position in the data buffer's first 4 bytes
    kStop = 25,
    kVersion = 26,
    kReset = 28,
};

enum Status : int16_t {
    kSuccess = 0,
    kInvalidOperation = 1,
    kIoError = 2,
    kFileNotOpen = 3,
    kKeyNotFound = 4,
    kDuplicateKey = 5,
    kInvalidKeyNumber = 6,
    kDifferentKeyNumber = 7,
    kInvalidPositioning = 8,
    kEndOfFile = 9,
    kModifiableKeyChanged = 10,
    kInvalidFileName = 11,
    kFileNotFound = 12,
    kDiskFull = 18,
    kKeyBufferTooShort = 21,
    kDataBufferTooShort = 22,
    kFileInUseCreate = 25,
    kNotARecordFile = 30,
    kAccessDenied = 46,
    kConflict = 80,
    kRecordLocked = 84,
    kFileLocked = 85,
};

enum OpenMode : int8_t {
    kOpenNormal = 0,
    kOpenAccelerated = -1,
    kOpenReadOnly = -2,
    kOpenExclusive = -4,
};

enum KeyFlag : uint16_t {
    kKeyDuplicates = 1,
    kKeyModifiable = 2,
    kKeyBinary = 4,
    kKeyNullKey = 8,
    kKeySegmented = 16,
    kKeyAlternate = 32,
    kKeyDescending = 64,
    kKeySupplemental = 128,
    kKeyExtendedType = 256,
    kKeyManual = 512,
    kKeyCaseInsensitive = 1024,
};

#pragma pack(push, 1)
// One key segment of the file's creation record (16 bytes).
struct KeySpec {
    uint16_t position;  // 1-based byte offset in the record
    uint16_t length;
    uint16_t flags;
    uint8_t reserved1[4];
    uint8_t extendedType;
    uint8_t nullValue;
    uint8_t reserved2[4];
};

// The creation record given to Create and returned by Stat (160 bytes, little-endian).
struct PbTBtrFileBuf {
    uint16_t RecLen;
    uint16_t PageSize;
    uint16_t IndxCnt;
    uint32_t RecordCount;  // filled by Stat
    uint16_t FileFlags;
    uint16_t Reserved;
    uint16_t PreAlloc;
    KeySpec Keys[9];
};

// One component of the Version answer (operation 26). The data buffer receives two of them,
// 10 bytes: the engine itself (product 'T') and the SQLite library under it (product 'S').
struct VersionComponent {
    uint16_t major;
    uint16_t minor;
    char product;
};
#pragma pack(pop)

static_assert(sizeof(KeySpec) == 16);
static_assert(sizeof(PbTBtrFileBuf) == 160);
static_assert(sizeof(VersionComponent) == 5);

inline constexpr uint16_t kEngineMajor = 1;
inline constexpr uint16_t kEngineMinor = 0;

}  // namespace toverin::btr
