// BTRCALL: the process-wide table of handles (one per position block) over the open record
// files, currency, and the dispatch of every operation.
#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "store/engine/Btrieve.h"
#include "store/engine/RecordFile.h"

namespace toverin::engine {
namespace {

namespace fs = std::filesystem;
using namespace toverin::btr;

// What a position block holds: our mark and the handle number. Handle numbers are never reused,
// so a block kept after Close (or Stop) is recognised as stale.
constexpr char kMagic[4] = {'T', 'v', 'E', 'n'};

// Rows a handle reads ahead of its current record, in the direction it reads: the first fill
// after a search, and the most a fill takes (fewer where rows are long).
constexpr int kAheadFirst = 4;
constexpr int kAheadMost = 256;
constexpr size_t kAheadBytes = 128 * 1024;

struct Handle {
    std::shared_ptr<RecordFile> file;  // first: destroyed after the statements below
    int8_t mode = kOpenNormal;

    // Currency: a place in the order of one key, (key value, row id). onRecord is false after a
    // Delete or a read that failed: the place is then between records, and Update, Delete and
    // Get Position give 8. A search that found nothing stands where its value would (id 0:
    // before the records holding that value, INT64_MAX: after them).
    bool positioned = false;
    bool onRecord = false;
    int key = 0;
    std::string keyValue;  // stored form
    int64_t id = 0;
    int64_t change = 0;  // the record's change counter when this handle read or wrote it

    // The stepping statement that produced the current record, within the call that stepped
    // it: every read call ends by resetting them all (RecordFile::EndLiveCursors).
    Statement* live = nullptr;
    CursorKind liveKind = CursorKind::kGreater;
    std::vector<std::array<Statement, kCursorKinds>> cursors;  // per key, prepared on first use
    uint64_t cursorsPath = 0;  // the file's path version they were prepared for
    // For a live cursor that reads its index alone: the statement stepping down the row ids
    // that holds the current record, and that record's id.
    Statement* rows = nullptr;
    int64_t rowsAt = 0;
    uint64_t rowsResets = 0;

    // The rows that follow the current record in the order of `key`, read ahead in the same
    // snapshot so that Get Next and Get Previous need no statement between calls. Each slot:
    // id, change counter, stored key, record. Good while the file's generation stays: any
    // write and any commit by another connection moves it.
    std::vector<char> ahead;
    int aheadRows = 0;    // slots filled
    int aheadNext = 0;    // the next one to deliver
    int aheadWanted = 0;  // rows the next fill reads
    bool aheadForward = true;
    uint64_t aheadGeneration = 0;

    std::string search;  // scratch: stored form of a search value

    bool accelerated() const { return mode == kOpenAccelerated; }
    bool readOnly() const { return mode == kOpenReadOnly; }
    Statement& Cursor(int k, CursorKind kind) {
        Statement& s = cursors[k][static_cast<int>(kind)];
        if (!s) s = file->PrepareCursor(k, kind);
        return s;
    }
};

struct EngineState {
    std::mutex mutex;
    uint32_t nextHandle = 1;
    std::unordered_map<uint32_t, std::unique_ptr<Handle>> handles;
    // The last two handles looked up: a copy alternates between its source and its target.
    std::array<std::pair<uint32_t, Handle*>, 2> recent{};
    int nextRecent = 0;
    std::map<std::string, std::weak_ptr<RecordFile>> files;  // by canonical path
};

EngineState& State() {
    static EngineState state;
    return state;
}

// The path in a key buffer: up to the first NUL, trailing blanks dropped (callers pad, or append
// a blank as a terminator). Both separators are accepted.
std::string PathFromKey(const void* keyBuffer, uint8_t keyLength) {
    if (keyBuffer == nullptr) return {};
    const char* p = static_cast<const char*>(keyBuffer);
    std::string path(p, strnlen(p, keyLength));
    while (!path.empty() && path.back() == ' ') path.pop_back();
#ifndef _WIN32
    std::replace(path.begin(), path.end(), '\\', '/');
#endif
    return path;
}

std::string CanonicalPath(const std::string& path) {
    std::error_code ec;
    fs::path canonical = fs::weakly_canonical(fs::absolute(path, ec), ec);
    return ec ? fs::path(path).lexically_normal().string() : canonical.string();
}

Handle* FindHandle(const void* positionBlock) {
    if (positionBlock == nullptr) return nullptr;
    const char* block = static_cast<const char*>(positionBlock);
    if (std::memcmp(block, kMagic, sizeof kMagic) != 0) return nullptr;
    uint32_t number;
    std::memcpy(&number, block + sizeof kMagic, sizeof number);
    EngineState& state = State();
    for (const auto& [known, handle] : state.recent) {
        if (known == number && handle != nullptr) return handle;
    }
    auto it = state.handles.find(number);
    if (it == state.handles.end()) return nullptr;
    state.recent[state.nextRecent] = {number, it->second.get()};
    state.nextRecent ^= 1;
    return it->second.get();
}

void MarkPositionBlock(void* positionBlock, uint32_t number) {
    char* block = static_cast<char*>(positionBlock);
    std::memset(block, 0, kPositionBlockSize);
    std::memcpy(block, kMagic, sizeof kMagic);
    std::memcpy(block + sizeof kMagic, &number, sizeof number);
}

int16_t StatusOf(const SqliteError& e) {
    switch (e.primary()) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return kRecordLocked;
        case SQLITE_READONLY:
            return kAccessDenied;
        case SQLITE_FULL:
            return kDiskFull;
        case SQLITE_CONSTRAINT:
            return kDuplicateKey;
        default:
            return kIoError;  // damage (CORRUPT, NOTADB) and I/O failures
    }
}

// ---- Open, Close, Create, Stat, Version, Stop --------------------------------------------

int16_t CloseHandle(uint32_t number) {
    EngineState& state = State();
    auto it = state.handles.find(number);
    if (it == state.handles.end()) return kFileNotOpen;
    std::unique_ptr<Handle> handle = std::move(it->second);
    state.handles.erase(it);
    for (auto& recent : state.recent) {
        if (recent.first == number) recent = {0, nullptr};
    }
    std::string path = handle->file->path();
    int16_t status = kSuccess;
    try {
        if (handle->accelerated()) handle->file->RemoveAcceleratedHandle();
    } catch (const SqliteError& e) {
        status = StatusOf(e);
    }
    handle.reset();  // the file closes with its last handle
    auto file = state.files.find(path);
    if (file != state.files.end() && file->second.expired()) state.files.erase(file);
    return status;
}

int16_t CloseAll() {
    int16_t status = kSuccess;
    std::vector<uint32_t> numbers;
    for (const auto& [number, handle] : State().handles) numbers.push_back(number);
    for (uint32_t number : numbers) {
        int16_t s = CloseHandle(number);
        if (status == kSuccess) status = s;
    }
    return status;
}

int16_t Open(void* positionBlock, void* keyBuffer, uint8_t keyLength, int8_t mode) {
    if (positionBlock == nullptr) return kFileNotOpen;
    if (mode != kOpenNormal && mode != kOpenAccelerated && mode != kOpenReadOnly &&
        mode != kOpenExclusive && mode != -3 /* verify: same as normal here */)
        return kInvalidKeyNumber;
    std::string path = PathFromKey(keyBuffer, keyLength);
    if (path.empty()) return kInvalidFileName;
    std::string canonical = CanonicalPath(path);

    EngineState& state = State();
    std::shared_ptr<RecordFile> file = state.files[canonical].lock();
    if (file) {
        if (file->exclusive() || mode == kOpenExclusive) return kFileLocked;
        file->Join(mode);
    } else {
        std::unique_ptr<RecordFile> opened;
        int16_t status = RecordFile::Open(canonical, mode, true, opened);
        if (status != kSuccess) {
            state.files.erase(canonical);
            return status;
        }
        file = std::move(opened);
        state.files[canonical] = file;
    }
    auto handle = std::make_unique<Handle>();
    handle->file = file;
    handle->mode = mode == -3 ? static_cast<int8_t>(kOpenNormal) : mode;
    handle->cursors.resize(file->layout().keys.size());
    handle->cursorsPath = file->pathVersion();
    if (handle->accelerated()) file->AddAcceleratedHandle();
    uint32_t number = state.nextHandle++;
    state.handles[number] = std::move(handle);
    MarkPositionBlock(positionBlock, number);
    return kSuccess;
}

int16_t Create(const void* dataBuffer, const uint32_t* dataLength, void* keyBuffer,
               uint8_t keyLength) {
    if (dataBuffer == nullptr || dataLength == nullptr) return kDataBufferTooShort;
    std::string path = PathFromKey(keyBuffer, keyLength);
    if (path.empty()) return kInvalidFileName;
    KeyLayout layout;
    int16_t status = KeyLayout::Parse(dataBuffer, *dataLength, layout);
    if (status != kSuccess) return status;
    std::string canonical = CanonicalPath(path);
    if (!State().files[canonical].expired()) return kFileInUseCreate;
    State().files.erase(canonical);
    return RecordFile::Create(canonical, layout);
}

int16_t Stat(Handle& h, void* dataBuffer, uint32_t* dataLength) {
    const KeyLayout& layout = h.file->layout();
    if (dataBuffer == nullptr || dataLength == nullptr || *dataLength < layout.FileBufSize())
        return kDataBufferTooShort;
    PbTBtrFileBuf fileBuf = layout.fileBuf;
    fileBuf.RecordCount = h.file->CountRecords();
    std::memcpy(dataBuffer, &fileBuf, std::min<size_t>(*dataLength, sizeof fileBuf));
    *dataLength = static_cast<uint32_t>(layout.FileBufSize());
    return kSuccess;
}

int16_t Version(void* dataBuffer, uint32_t* dataLength) {
    VersionComponent components[2] = {
        {kEngineMajor, kEngineMinor, 'T'},
        {static_cast<uint16_t>(SQLITE_VERSION_NUMBER / 1000000),
         static_cast<uint16_t>(SQLITE_VERSION_NUMBER / 1000 % 1000), 'S'},
    };
    if (dataBuffer == nullptr || dataLength == nullptr || *dataLength < sizeof components)
        return kDataBufferTooShort;
    std::memcpy(dataBuffer, components, sizeof components);
    *dataLength = sizeof components;
    return kSuccess;
}

// ---- Reads -------------------------------------------------------------------------------

bool InGroup(CursorKind kind) {
    return kind == CursorKind::kAfterInGroup || kind == CursorKind::kBeforeInGroup;
}
bool Forward(CursorKind kind) {
    return kind == CursorKind::kAfterInGroup || kind == CursorKind::kGreater ||
           kind == CursorKind::kGreaterEqual || kind == CursorKind::kRowsUpFrom;
}

// Makes `key` readable (see RecordFile::BeforeRead); statements prepared for a read path the
// file has left are dropped.
void BeforeRead(Handle& h, int key) {
    h.file->BeforeRead(key, !h.readOnly());
    if (h.cursorsPath == h.file->pathVersion()) return;
    for (auto& perKey : h.cursors) {
        for (Statement& s : perKey) s = Statement();
    }
    h.live = nullptr;
    h.rows = nullptr;
    h.cursorsPath = h.file->pathVersion();
}

void MakeLive(Handle& h, Statement& s, CursorKind kind) {
    h.live = &s;
    h.liveKind = kind;
    h.file->NoteLiveCursor();
}

// Reads rows from id `from` on, up or down the ids, for a key read in row order.
bool SeekRows(Handle& h, int key, bool upTheIds, int64_t from) {
    CursorKind rows = upTheIds ? CursorKind::kRowsUpFrom : CursorKind::kRowsDownFrom;
    Statement& s = h.Cursor(key, rows);
    s.Reset();
    s.BindInt(1, from);
    if (!s.Step()) return false;
    MakeLive(h, s, rows);
    return true;
}

// A search on a key in row id order (unique, so never within a group of duplicates). Where its
// values rise with the ids: forward from the first row past the value, backward from the row
// before the first at or past it. Where they fall, the same mirrored: a read forward in key
// order goes down the ids from just before the first row at or below the value.
bool SeekInRowOrder(Handle& h, int key, CursorKind kind, std::string_view value) {
    const bool forward = Forward(kind);
    const bool falling = h.file->FallsInRowOrder(key);
    const bool orEqual =
        (kind == CursorKind::kGreaterEqual || kind == CursorKind::kLess) != falling;
    const bool upTheIds = forward != falling;
    int64_t bound = h.file->FirstRowPast(key, value, orEqual, !upTheIds);
    if (upTheIds && bound == std::numeric_limits<int64_t>::max()) return false;
    return SeekRows(h, key, upTheIds, upTheIds ? bound : bound - 1);
}

bool Seek(Handle& h, int key, CursorKind kind, std::string_view value, int64_t id = 0) {
    h.live = nullptr;
    if (h.file->PathOf(key) == ReadPath::kRowOrder) return SeekInRowOrder(h, key, kind, value);
    Statement& s = h.Cursor(key, kind);
    s.Reset();
    int rc = value.empty() ? sqlite3_bind_zeroblob(s.get(), 1, 0)
                           : sqlite3_bind_blob(s.get(), 1, value.data(),
                                               static_cast<int>(value.size()), SQLITE_TRANSIENT);
    if (rc != SQLITE_OK) throw SqliteError(rc, sqlite3_errstr(rc));
    if (InGroup(kind)) s.BindInt(2, id);
    if (!s.Step()) return false;
    MakeLive(h, s, kind);
    return true;
}

// Moves from the place (key value, row id) to the next record in the current key's order,
// forward or backward, with a search: the statement that read the current record is gone.
bool Step(Handle& h, bool forward) {
    const KeyDef& key = h.file->layout().keys[h.key];
    constexpr int64_t kAfterAll = std::numeric_limits<int64_t>::max();
    if (h.file->PathOf(h.key) == ReadPath::kRowOrder && h.id > 0 && h.id < kAfterAll) {
        // The place is a row (read, written or deleted): in row order, its neighbours by id
        // are its neighbours by key.
        h.live = nullptr;
        bool upTheIds = forward != h.file->FallsInRowOrder(h.key);
        return SeekRows(h, h.key, upTheIds, upTheIds ? h.id + 1 : h.id - 1);
    }
    if (key.duplicates &&
        Seek(h, h.key, forward ? CursorKind::kAfterInGroup : CursorKind::kBeforeInGroup, h.keyValue,
             h.id))
        return true;
    CursorKind kind = forward ? CursorKind::kGreater : CursorKind::kLess;
    // Between records where a search found nothing: records holding the value itself come next
    // on one side (with duplicates, the group searches above have taken them).
    if (!h.onRecord && !key.duplicates) {
        if (forward && h.id == 0) kind = CursorKind::kGreaterEqual;
        if (!forward && h.id == kAfterAll) kind = CursorKind::kLessEqual;
    }
    return Seek(h, h.key, kind, h.keyValue);
}

// The row `id`, on the statement stepping down the row ids: one step from the row it holds when
// rows stand in key order by id too, a search otherwise.
Statement& RowDownAt(Handle& h, int key, int64_t id) {
    if (h.rows != nullptr && h.rowsResets == h.file->resets() && id < h.rowsAt) {
        if (h.rows->Step() && (h.rowsAt = h.rows->Int(kColId)) == id) return *h.rows;
    }
    Statement& s = h.Cursor(key, CursorKind::kRowsDownFrom);
    h.rows = &s;
    s.Reset();
    s.BindInt(1, id);
    if (!s.Step() || s.Int(kColId) != id) {
        h.rows = nullptr;
        throw SqliteError(SQLITE_CORRUPT, "an index entry without its row");
    }
    h.rowsAt = id;
    h.rowsResets = h.file->resets();
    h.file->NoteLiveCursor();
    return s;
}

// One record as a read finds it. The views last until the statements they come from move.
struct Row {
    int64_t id = 0;
    int64_t change = 0;
    std::string_view key;  // stored form
    std::string_view record;
};

// The live statement's row; cursors that read their index alone take the rest from the
// statement stepping down the row ids.
Row LiveRow(Handle& h, int key) {
    Statement& s = *h.live;
    Row row;
    row.id = s.Int(kColId);
    row.key = s.Blob(kColKey);
    Statement& source = ReadsIndexAlone(h.liveKind) ? RowDownAt(h, key, row.id) : s;
    row.change = source.Int(kColChange);
    row.record = source.Blob(kColRecord);
    const KeyLayout& layout = h.file->layout();
    if (row.record.size() < layout.recordLength || row.key.size() != layout.keys[key].length)
        throw SqliteError(SQLITE_CORRUPT, "short record or key");
    return row;
}

// Makes `row` the current record and returns it to the caller.
int16_t Deliver(Handle& h, int key, const Row& row, void* dataBuffer, uint32_t* dataLength,
                void* keyBuffer) {
    const KeyLayout& layout = h.file->layout();
    h.positioned = true;
    h.onRecord = true;
    h.key = key;
    h.id = row.id;
    h.change = row.change;
    h.keyValue.assign(row.key.data(), row.key.size());
    // Read has checked that a key buffer holds the key.
    if (keyBuffer != nullptr)
        CopyRecordKey(layout.keys[key], row.record.data(), static_cast<char*>(keyBuffer));
    uint32_t room = *dataLength;
    std::memcpy(dataBuffer, row.record.data(), std::min<size_t>(room, layout.recordLength));
    *dataLength = layout.recordLength;
    return room < layout.recordLength ? kDataBufferTooShort : kSuccess;
}

size_t AheadSlotSize(const Handle& h) {
    const KeyLayout& layout = h.file->layout();
    return 16 + layout.keys[h.key].length + layout.recordLength;
}

Row AheadRow(const Handle& h, int slot) {
    const KeyLayout& layout = h.file->layout();
    const size_t keyLength = layout.keys[h.key].length;
    const char* p = h.ahead.data() + AheadSlotSize(h) * static_cast<size_t>(slot);
    Row row;
    std::memcpy(&row.id, p, 8);
    std::memcpy(&row.change, p + 8, 8);
    row.key = std::string_view(p + 16, keyLength);
    row.record = std::string_view(p + 16 + keyLength, layout.recordLength);
    return row;
}

// Drops the rows read ahead (a search, a write, a change of direction or of the file). When
// some had not been read, the next fill reads no more than were: a caller that writes between
// its reads would throw the rest away again.
void ForgetAhead(Handle& h) {
    if (h.aheadNext < h.aheadRows) h.aheadWanted = h.aheadNext;
    h.aheadRows = h.aheadNext = 0;
}

// After a record came from the live statement: reads on with it, within the same snapshot.
// A fault met on the way is left to the call that needs the row past it.
void ReadAhead(Handle& h, bool forward) {
    h.aheadRows = h.aheadNext = 0;
    if (h.aheadWanted <= 0 || h.live == nullptr) return;
    const size_t slotSize = AheadSlotSize(h);
    const size_t needed = slotSize * static_cast<size_t>(h.aheadWanted);
    if (h.ahead.size() < needed) h.ahead.resize(needed);
    h.aheadForward = forward;
    h.aheadGeneration = h.file->generation();
    try {
        while (h.aheadRows < h.aheadWanted) {
            if (!h.live->Step()) {
                bool inGroup = InGroup(h.liveKind);
                h.live = nullptr;
                if (!inGroup) break;
                // The duplicates of the last value are exhausted; go on with the values beyond.
                std::string_view last = h.aheadRows == 0 ? std::string_view(h.keyValue)
                                                         : AheadRow(h, h.aheadRows - 1).key;
                if (!Seek(h, h.key, forward ? CursorKind::kGreater : CursorKind::kLess, last))
                    break;
            }
            Row row = LiveRow(h, h.key);
            char* p = h.ahead.data() + slotSize * static_cast<size_t>(h.aheadRows);
            std::memcpy(p, &row.id, 8);
            std::memcpy(p + 8, &row.change, 8);
            std::memcpy(p + 16, row.key.data(), row.key.size());
            std::memcpy(p + 16 + row.key.size(), row.record.data(), row.record.size());
            ++h.aheadRows;
        }
    } catch (const SqliteError&) {
        h.live = nullptr;
    }
}

// Get Next / Get Previous from the rows read ahead, while the file has not changed since.
bool TakeAhead(Handle& h, bool forward, void* dataBuffer, uint32_t* dataLength, void* keyBuffer,
               int16_t& status) {
    if (h.aheadNext >= h.aheadRows) return false;
    if (h.aheadForward != forward || h.aheadGeneration != h.file->generation()) {
        ForgetAhead(h);
        return false;
    }
    status = Deliver(h, h.key, AheadRow(h, h.aheadNext), dataBuffer, dataLength, keyBuffer);
    ++h.aheadNext;
    return true;
}

int16_t StepAndDeliver(Handle& h, bool forward, void* dataBuffer, uint32_t* dataLength,
                       void* keyBuffer) {
    int16_t status;
    if (TakeAhead(h, forward, dataBuffer, dataLength, keyBuffer, status)) return status;
    // The rows read ahead ran out: a longer run next time, as reading goes on.
    if (h.aheadRows > 0 && h.aheadNext == h.aheadRows) {
        const int most = static_cast<int>(
            std::clamp<size_t>(kAheadBytes / AheadSlotSize(h), kAheadFirst, kAheadMost));
        h.aheadWanted = std::min(std::max(h.aheadWanted * 2, kAheadFirst), most);
    }
    h.aheadRows = h.aheadNext = 0;
    if (!Step(h, forward)) {
        h.onRecord = false;
        return kEndOfFile;
    }
    status = Deliver(h, h.key, LiveRow(h, h.key), dataBuffer, dataLength, keyBuffer);
    ReadAhead(h, forward);
    return status;
}

// A search that found nothing: no current record, and the place where `value` would stand,
// before the records that hold it or after them.
int16_t NotFound(Handle& h, int key, std::string_view value, bool afterValue, int16_t status) {
    h.live = nullptr;
    h.positioned = true;
    h.onRecord = false;
    h.key = key;
    h.keyValue.assign(value.data(), value.size());
    h.id = afterValue ? std::numeric_limits<int64_t>::max() : 0;
    return status;
}

int16_t Read(Handle& h, uint16_t operation, void* dataBuffer, uint32_t* dataLength, void* keyBuffer,
             uint8_t keyLength, int8_t keyNumber) {
    const KeyLayout& layout = h.file->layout();
    if (keyNumber < 0 || keyNumber >= static_cast<int>(layout.keys.size()))
        return kInvalidKeyNumber;
    const KeyDef& key = layout.keys[keyNumber];
    if (dataBuffer == nullptr || dataLength == nullptr) return kDataBufferTooShort;
    if (keyBuffer != nullptr && keyLength < key.length) return kKeyBufferTooShort;
    BeforeRead(h, keyNumber);

    if (operation == kGetNext || operation == kGetPrevious) {
        if (!h.positioned) return kInvalidPositioning;
        if (keyNumber != h.key) return kDifferentKeyNumber;
        return StepAndDeliver(h, operation == kGetNext, dataBuffer, dataLength, keyBuffer);
    }

    h.aheadRows = h.aheadNext = 0;
    h.aheadWanted = kAheadFirst;
    bool searches = operation != kGetFirst && operation != kGetLast;
    if (searches) {
        if (keyBuffer == nullptr) return kKeyBufferTooShort;
        NormalizeSearchKey(key, static_cast<const char*>(keyBuffer), h.search);
    }
    bool found = false;
    bool afterValue = false;  // where the value would stand, when nothing is found
    switch (operation) {
        case kGetEqual:
            found = Seek(h, keyNumber, CursorKind::kGreaterEqual, h.search) &&
                    h.live->Blob(kColKey) == h.search;
            if (!found) return NotFound(h, keyNumber, h.search, false, kKeyNotFound);
            break;
        case kGetGreater:
            found = Seek(h, keyNumber, CursorKind::kGreater, h.search);
            afterValue = true;
            break;
        case kGetGreaterOrEqual:
            found = Seek(h, keyNumber, CursorKind::kGreaterEqual, h.search);
            break;
        case kGetLessThan:
            found = Seek(h, keyNumber, CursorKind::kLess, h.search);
            break;
        case kGetLessOrEqual:
            found = Seek(h, keyNumber, CursorKind::kLessEqual, h.search);
            afterValue = true;
            break;
        case kGetFirst:
            h.search.clear();  // below every stored value
            found = Seek(h, keyNumber, CursorKind::kGreaterEqual, h.search);
            break;
        case kGetLast:
            // Every stored value of this key is shorter than this one and not above it.
            h.search.assign(key.length + 1, '\xff');
            found = Seek(h, keyNumber, CursorKind::kLessEqual, h.search);
            afterValue = true;
            break;
    }
    if (!found) return NotFound(h, keyNumber, h.search, afterValue, kEndOfFile);
    return Deliver(h, keyNumber, LiveRow(h, keyNumber), dataBuffer, dataLength, keyBuffer);
}

// Get Position: the current record's position, its row id, as 4 bytes (little-endian). Ids
// stay far below 2^32 in these files (one per record ever inserted); past that a record has no
// 4-byte position, and the answer is 8 as with no current record.
int16_t GetPosition(Handle& h, void* dataBuffer, uint32_t* dataLength) {
    if (!h.onRecord || h.id < 1 || h.id > std::numeric_limits<uint32_t>::max())
        return kInvalidPositioning;
    if (dataBuffer == nullptr || dataLength == nullptr || *dataLength < 4)
        return kDataBufferTooShort;
    unsigned char* out = static_cast<unsigned char*>(dataBuffer);
    for (int i = 0; i < 4; ++i) out[i] = static_cast<unsigned char>(h.id >> (8 * i));
    *dataLength = 4;
    return kSuccess;
}

// Get Direct: the record at the position in the data buffer's first 4 bytes, made current in
// the order of `keyNumber` (its key value comes back in the key buffer). 8 when no record is
// there; the handle then has no position at all.
int16_t GetDirect(Handle& h, void* dataBuffer, uint32_t* dataLength, void* keyBuffer,
                  uint8_t keyLength, int8_t keyNumber) {
    const KeyLayout& layout = h.file->layout();
    if (keyNumber < 0 || keyNumber >= static_cast<int>(layout.keys.size()))
        return kInvalidKeyNumber;
    if (dataBuffer == nullptr || dataLength == nullptr || *dataLength < 4)
        return kDataBufferTooShort;
    if (keyBuffer != nullptr && keyLength < layout.keys[keyNumber].length)
        return kKeyBufferTooShort;
    const unsigned char* in = static_cast<const unsigned char*>(dataBuffer);
    int64_t position = 0;
    for (int i = 0; i < 4; ++i) position |= static_cast<int64_t>(in[i]) << (8 * i);
    BeforeRead(h, keyNumber);
    h.aheadRows = h.aheadNext = 0;
    h.aheadWanted = kAheadFirst;
    h.live = nullptr;
    Statement& s = h.Cursor(keyNumber, CursorKind::kRowAt);
    s.Reset();
    s.BindInt(1, position);
    if (!s.Step()) {
        h.positioned = false;
        h.onRecord = false;
        return kInvalidPositioning;
    }
    MakeLive(h, s, CursorKind::kRowAt);
    int16_t status =
        Deliver(h, keyNumber, LiveRow(h, keyNumber), dataBuffer, dataLength, keyBuffer);
    h.live = nullptr;  // Get Next goes on by a search from the place
    return status;
}

// ---- Writes ------------------------------------------------------------------------------

// After a write, the handle stands on the written record in the order of `keyNumber`.
void PositionOnWritten(Handle& h, int keyNumber, const char* record, void* keyBuffer,
                       uint8_t keyLength) {
    const KeyDef& key = h.file->layout().keys[keyNumber];
    h.positioned = true;
    h.onRecord = true;
    h.key = keyNumber;
    h.live = nullptr;
    h.keyValue = h.file->WrittenKey(keyNumber);
    if (keyBuffer == nullptr) return;
    if (keyLength >= key.length) {
        CopyRecordKey(key, record, static_cast<char*>(keyBuffer));
    } else {
        char whole[256];  // a key is at most 255 bytes
        CopyRecordKey(key, record, whole);
        std::memcpy(keyBuffer, whole, keyLength);
    }
}

int16_t Write(Handle& h, uint16_t operation, void* dataBuffer, uint32_t* dataLength,
              void* keyBuffer, uint8_t keyLength, int8_t keyNumber) {
    const KeyLayout& layout = h.file->layout();
    if (h.readOnly()) return kAccessDenied;
    if (keyNumber < 0 || keyNumber >= static_cast<int>(layout.keys.size()))
        return kInvalidKeyNumber;
    if (operation != kInsert && !h.onRecord) return kInvalidPositioning;
    ForgetAhead(h);
    if (operation == kDelete) {
        int16_t status = h.file->Delete(h.id, h.change, h.accelerated());
        if (status == kSuccess) {
            h.onRecord = false;  // keeps its place between the neighbours
            h.live = nullptr;
        }
        return status;
    }
    if (dataBuffer == nullptr || dataLength == nullptr || *dataLength < layout.recordLength)
        return kDataBufferTooShort;
    const char* record = static_cast<const char*>(dataBuffer);
    int16_t status;
    if (operation == kInsert) {
        int64_t id = 0;
        status = h.file->Insert(record, h.accelerated(), id);
        if (status == kSuccess) {
            h.id = id;
            h.change = 0;
        }
    } else {
        int64_t change = 0;
        status = h.file->Update(h.id, h.change, record, h.accelerated(), change);
        if (status == kSuccess) h.change = change;
    }
    if (status == kSuccess) PositionOnWritten(h, keyNumber, record, keyBuffer, keyLength);
    return status;
}

int16_t Dispatch(uint16_t operation, void* positionBlock, void* dataBuffer, uint32_t* dataLength,
                 void* keyBuffer, uint8_t keyLength, int8_t keyNumber) {
    switch (operation) {
        case kOpen:
            return Open(positionBlock, keyBuffer, keyLength, keyNumber);
        case kCreate:
            return Create(dataBuffer, dataLength, keyBuffer, keyLength);
        case kVersion:
            return Version(dataBuffer, dataLength);
        case kStop:
        case kReset:
            // Single client per process: releasing the caller's resources closes everything.
            return CloseAll();
        case kClose:
        case kInsert:
        case kUpdate:
        case kDelete:
        case kGetEqual:
        case kGetNext:
        case kGetPrevious:
        case kGetGreater:
        case kGetGreaterOrEqual:
        case kGetLessThan:
        case kGetLessOrEqual:
        case kGetFirst:
        case kGetLast:
        case kStat:
        case kGetPosition:
        case kGetDirect:
            break;
        default:
            return kInvalidOperation;
    }
    Handle* h = FindHandle(positionBlock);
    if (h == nullptr) return kFileNotOpen;
    switch (operation) {
        case kClose: {
            uint32_t number;
            std::memcpy(&number, static_cast<char*>(positionBlock) + sizeof kMagic, sizeof number);
            int16_t status = CloseHandle(number);
            std::memset(positionBlock, 0, sizeof kMagic);
            return status;
        }
        case kStat:
            return Stat(*h, dataBuffer, dataLength);
        case kInsert:
        case kUpdate:
        case kDelete:
            return Write(*h, operation, dataBuffer, dataLength, keyBuffer, keyLength, keyNumber);
        case kGetPosition:
            return GetPosition(*h, dataBuffer, dataLength);
        default: {
            // No read keeps a snapshot past its call: rows it read ahead serve the next calls.
            struct EndReads {
                RecordFile& file;
                ~EndReads() { file.EndLiveCursors(); }
            } endReads{*h->file};
            try {
                if (operation == kGetDirect)
                    return GetDirect(*h, dataBuffer, dataLength, keyBuffer, keyLength, keyNumber);
                return Read(*h, operation, dataBuffer, dataLength, keyBuffer, keyLength, keyNumber);
            } catch (const SqliteError& e) {
                h->live = nullptr;  // the failing statement was reset
                h->aheadRows = h->aheadNext = 0;
                // A read that failed leaves no current record; one that waited in vain for
                // another process's lock (84, retried by the caller) changed nothing.
                if (e.primary() != SQLITE_BUSY && e.primary() != SQLITE_LOCKED) h->onRecord = false;
                throw;
            } catch (...) {
                h->live = nullptr;
                h->onRecord = false;
                h->aheadRows = h->aheadNext = 0;
                throw;
            }
        }
    }
}

}  // namespace
}  // namespace toverin::engine

extern "C" int16_t BTRCALL(uint16_t operation, void* positionBlock, void* dataBuffer,
                           uint32_t* dataLength, void* keyBuffer, uint8_t keyLength,
                           int8_t keyNumber) {
    using namespace toverin::engine;
    std::lock_guard<std::mutex> lock(State().mutex);
    try {
        return Dispatch(operation, positionBlock, dataBuffer, dataLength, keyBuffer, keyLength,
                        keyNumber);
    } catch (const SqliteError& e) {
        return StatusOf(e);
    } catch (const std::bad_alloc&) {
        return toverin::btr::kIoError;
    }
}
