// The access layer's tables and its guarded call, BTRieve, with the retry rules that let several
// workstations share the same files: conflicts are re-read and retried, locks and transaction
// statuses waited out, and everything else reported once in the program's words.
#include "store/Pervasive.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

#include "app/Clock.h"
#include "app/Errors.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "store/PervasiveState.h"
#include "store/RecordView.h"

namespace toverin {

using namespace pervasive;

namespace {

constexpr int kRetryLimit = 10;
constexpr Milliseconds kConflictWait{500};
constexpr Milliseconds kLockWait{1000};
constexpr size_t kEmptyDataBuffer = 100;
constexpr size_t kKeyBufferSize = 255;

// One line of a base's call history. Nearly every call adds a line and nearly no line is ever
// read (only error reports show them), so a line keeps the call's parts as they came and is
// written out the first time somebody reads it.
struct HistoryEntry {
    int fileNumber = 0;
    int station = 0;
    uint16_t operation = 0;
    int keyNumber = 0;
    std::string buffer;  // the buffer's bytes without their trailing blanks and NULs
    std::string caller;
    std::string appended;  // text added to the line before it was written out
    bool written = false;  // `line` holds the whole line
    std::string line;
};

// The last kHistoryLines lines of a base, in a ring whose entries keep their storage, so that
// adding a line allocates nothing once the ring has gone round.
struct HistoryRing {
    std::array<HistoryEntry, kHistoryLines> entries;
    size_t newest = 0;
    size_t count = 0;
    std::deque<std::string> lines;  // what History() last handed out

    HistoryEntry& Newest() { return entries[newest]; }
    HistoryEntry& Push() {
        newest = (newest + 1) % entries.size();
        count = std::min(count + 1, entries.size());
        return entries[newest];
    }
    // The i-th line, newest first (i < count).
    HistoryEntry& At(size_t i) { return entries[(newest + entries.size() - i) % entries.size()]; }
};

struct Tables {
    std::array<std::array<std::array<Slot, kStations>, kCatalogueSize>, kSlotBases> slots;
    std::array<std::array<std::array<bool, kKeys>, kCatalogueSize>, kSlotBases> upperCase{};
    std::array<HistoryRing, kSlotBases> history;
};

struct LayerState {
    std::unique_ptr<Tables> tables = std::make_unique<Tables>();
    BtrCallFunction engine = &BTRCALL;
    int16_t lastStatus = 0;
    bool quiet = false;
    bool automatic = false;
    bool historyEnabled = true;
    bool upperCaseEnabled = false;
    std::function<void(const std::string&)> programEnd;
};

LayerState& State() {
    static LayerState state;
    return state;
}

void DefaultProgramEnd(const std::string& reason) {
    TraceLog("End: " + reason);
    TraceLogForce();
    std::exit(3);
}

bool IsTransactionStatus(int status) {
    return (status >= 36 && status <= 39) || status == 83 || status == 92;
}

bool IsLockStatus(int status) {
    return status == 81 || status == btr::kRecordLocked || status == btr::kFileLocked;
}

// Reads name their record by the key buffer; the other operations carry it in the data buffer.
bool SearchesByKey(uint16_t operation) {
    return operation == btr::kGetEqual || operation == btr::kGetGreater ||
           operation == btr::kGetGreaterOrEqual || operation == btr::kGetLessThan ||
           operation == btr::kGetLessOrEqual;
}

std::string HistoryLine(int fileNumber, int station, uint16_t operation, int keyNumber,
                        std::string_view buffer, const std::string& caller) {
    std::string sub = caller;
    std::replace(sub.begin(), sub.end(), ':', ' ');
    return "File:" + ZeroPad(fileNumber, 2) + " Station:" + std::to_string(station) +
           " OP:" + ZeroPad(operation, 2) + " K:" + ZeroPad(keyNumber, 2) + " [" +
           Printable(buffer) + "]" + " [" + "Sub: " + sub + "]";
}

const std::string& WrittenLine(HistoryEntry& entry) {
    if (!entry.written) {
        entry.line = HistoryLine(entry.fileNumber, entry.station, entry.operation, entry.keyNumber,
                                 entry.buffer, entry.caller) +
                     entry.appended;
        entry.written = true;
    }
    return entry.line;
}

// Notes a call in the history; its line is written out when it is read.
void AddCallToHistory(int base, int fileNumber, int station, uint16_t operation, int keyNumber,
                      std::string_view buffer, const std::string& caller) {
    if (base < 0 || base >= kSlotBases) return;
    HistoryEntry& entry = State().tables->history[base].Push();
    entry.fileNumber = fileNumber;
    entry.station = station;
    entry.operation = operation;
    entry.keyNumber = keyNumber;
    // Kept whole: one copy costs less than finding the trailing blanks, which the line drops
    // when it is written.
    entry.buffer.assign(buffer.data(), buffer.size());
    entry.caller.assign(caller);
    entry.appended.clear();
    entry.written = false;
    entry.line.clear();
}

// The status goes on the newest line once, after the call's last word on it.
void NoteStatusInHistory(int base) {
    if (base < 0 || base >= kSlotBases) return;
    HistoryRing& ring = State().tables->history[base];
    if (ring.count == 0) return;
    HistoryEntry& entry = ring.Newest();
    if (!entry.written && entry.appended.find(']') == std::string::npos) {
        // The line's last ']' closes its "[Sub: ...]" part; only the added text follows it.
        if (entry.appended.find("S:") != std::string::npos) return;
    } else {
        const std::string& newest = WrittenLine(entry);
        size_t close = newest.rfind(']');
        if (close != std::string::npos && newest.find("S:", close) != std::string::npos) return;
    }
    AppendToNewestHistoryLine(base, " S:" + std::to_string(State().lastStatus));
}

// The length of a key of a catalogue file; the catalogue does not change while the program runs.
int CatalogueKeyLength(int fileNumber, int keyNumber) {
    using Lengths = std::array<std::array<int, kKeys>, kCatalogueSize>;
    static const Lengths lengths = [] {
        Lengths table{};
        for (int f = 0; f < kCatalogueSize; ++f)
            for (int k = 0; k < kKeys; ++k) table[f][k] = KeyLength(f, k);
        return table;
    }();
    if (fileNumber < 0 || fileNumber >= kCatalogueSize || keyNumber < 0 || keyNumber >= kKeys)
        return KeyLength(fileNumber, keyNumber);
    return lengths[fileNumber][keyNumber];
}

// The buffers BTRieve_Reel hands the engine, kept between calls so that a call allocates nothing;
// a call made while another is in the engine (a scripted engine calling back) uses its own.
struct CallBuffers {
    std::string data;
    std::string key;
    bool busy = false;
};

CallBuffers& SharedCallBuffers() {
    static CallBuffers buffers;
    return buffers;
}

// One guarded call, without the history around it.
void GuardedCall(int base, uint16_t operation, std::string& data, std::string& key, int keyNumber,
                 int fileNumber, int station, const std::string& caller) {
    static const std::string procedure = ProcName("BTRieve", kModule);
    if (station > kStations || !ValidSlot(base, fileNumber, 1)) {
        GestionDesErreurs(9, "Subscript out of range", procedure, "BTrieve (" + caller + ")");
        State().lastStatus = operation == btr::kGetEqual ? btr::kKeyNotFound : btr::kEndOfFile;
        return;
    }
    if (!SlotAt(base, fileNumber, station).open) {
        // A caller that skipped its open test would work on whatever the block points to.
        std::string path = SlotPath(base, fileNumber, station);
        GestionDesErreurs(2003, "File not open: " + path, procedure, "BTrieve (" + caller + ")");
        State().lastStatus = btr::kFileNotOpen;
        ErrorChoice choice =
            ErreurBTrieve(base, fileNumber, station, data, caller, false, operation);
        if (choice != ErrorChoice::Abort)
            EndProgram("Operation " + std::to_string(operation) + " on a file not open: " + path +
                       " (" + caller + ")");
        return;
    }
    if (data.empty()) data.assign(kEmptyDataBuffer, ' ');

    auto report = [&] {
        return ErreurBTrieve(base, fileNumber, station, data, caller, false, operation);
    };
    auto reRead = [&](std::string& d, std::string& k) {
        return BTRieve_Reel(base, fileNumber, station, btr::kGetEqual, d, k, keyNumber);
    };
    int retries = 0;  // one count for the whole call, whatever the statuses met on the way
    for (;;) {
        int16_t status = BTRieve_Reel(base, fileNumber, station, operation, data, key, keyNumber);
        State().lastStatus = status;
        if (status == btr::kSuccess) break;

        if (status == btr::kDifferentKeyNumber) {
            // Files 34 and 35 are walked and rewritten on a key their callers change on purpose.
            if ((operation == btr::kUpdate && fileNumber == 35) ||
                ((operation == btr::kGetNext || operation == btr::kGetPrevious) &&
                 fileNumber == 34)) {
                State().lastStatus = btr::kSuccess;
                break;
            }
            if (operation == btr::kGetNext || operation == btr::kGetPrevious) {
                if (reRead(data, key) == btr::kSuccess) {
                    State().lastStatus = btr::kSuccess;
                    break;
                }
                State().lastStatus = status;
            }
            if (report() != ErrorChoice::Retry) break;
            continue;
        }
        if (IsTransactionStatus(status) || IsLockStatus(status)) {
            // Another workstation holds the record, the file or a transaction: wait it out,
            // asking the user from the eleventh time on (every time).
            if (++retries > kRetryLimit && report() != ErrorChoice::Retry) break;
            AppClock().Sleep(kLockWait);
            continue;
        }
        if (status == 54 || status == btr::kConflict) {
            if (status == 54) {
                if (operation == btr::kUpdate && fileNumber == 35) {
                    State().lastStatus = btr::kSuccess;
                    break;
                }
                if (!QuietFlag() && report() != ErrorChoice::Retry) break;
            }
            if (++retries > kRetryLimit) {
                State().lastStatus = -1;  // the caller decides; nobody is asked
                break;
            }
            AppClock().Sleep(kConflictWait);
            if (operation == btr::kUpdate || operation == btr::kDelete) {
                // The record changed under us: read it again so the engine takes our write as
                // made on the latest version. The caller's record and key stay as they were.
                std::string d = data;
                std::string k = key;
                if (k.find_first_not_of(std::string(" \0", 2)) == std::string::npos) {
                    // A caller that did not keep the key of its read: the record names itself.
                    k = KeyOf(fileNumber, keyNumber, data);
                }
                reRead(d, k);
            }
            continue;
        }
        bool write = operation == btr::kInsert || operation == btr::kUpdate;
        bool expected = write ? status == btr::kDuplicateKey
                              : (status == btr::kKeyNotFound || status == btr::kDuplicateKey ||
                                 status == btr::kEndOfFile);
        if (QuietFlag() || expected) break;
        if (report() != ErrorChoice::Retry) break;
    }

    if (State().lastStatus == btr::kSuccess && UpperCaseEnabled() && keyNumber >= 0 &&
        keyNumber < kKeys && UpperCaseKey(base, fileNumber, keyNumber))
        data = UpperCp1252(data);
}

}  // namespace

namespace pervasive {

bool ValidSlot(int base, int fileNumber, int station) {
    return base >= 0 && base < kSlotBases && fileNumber >= 0 && fileNumber < kCatalogueSize &&
           station >= 1 && station <= kStations;
}

Slot& SlotAt(int base, int fileNumber, int station) {
    return State().tables->slots[base][fileNumber][station - 1];
}

bool AnySlotOpen() {
    for (const auto& files : State().tables->slots)
        for (const auto& stations : files)
            for (const Slot& slot : stations)
                if (slot.open) return true;
    return false;
}

std::string SlotPath(int base, int fileNumber, int station) {
    if (!ValidSlot(base, fileNumber, station)) return "";
    const Slot& slot = SlotAt(base, fileNumber, station);
    return slot.path.empty() ? DataFilePath(base, fileNumber, station) : slot.path;
}

uint32_t RecordLengthOf(const Slot& slot, int fileNumber) {
    return slot.recordLength != 0 ? slot.recordLength : CatalogueEntryFor(fileNumber).recordLength;
}

const std::deque<std::string>& History(int base) {
    static const std::deque<std::string> none;
    if (base < 0 || base >= kSlotBases) return none;
    HistoryRing& ring = State().tables->history[base];
    ring.lines.clear();
    for (size_t i = 0; i < ring.count; ++i) ring.lines.push_back(WrittenLine(ring.At(i)));
    return ring.lines;
}

void AddHistoryLine(int base, std::string line) {
    if (base < 0 || base >= kSlotBases) return;
    HistoryEntry& entry = State().tables->history[base].Push();
    entry.line = std::move(line);
    entry.written = true;
}

void AppendToNewestHistoryLine(int base, std::string_view text) {
    if (base < 0 || base >= kSlotBases) return;
    HistoryRing& ring = State().tables->history[base];
    if (ring.count == 0) return;
    HistoryEntry& entry = ring.Newest();
    (entry.written ? entry.line : entry.appended).append(text);
}

std::string Printable(std::string_view bytes) {
    std::string shown(bytes);
    while (!shown.empty() && (shown.back() == ' ' || shown.back() == '\0')) shown.pop_back();
    for (char& c : shown) {
        auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F) c = '.';
    }
    return Utf8FromCp1252(shown);
}

void EndProgram(const std::string& reason) {
    auto& end = State().programEnd;
    if (end) {
        end(reason);
        return;
    }
    DefaultProgramEnd(reason);
}

std::string ProcName(const char* name, const char* module) {
    return std::string(name) + ":" + module;
}

}  // namespace pervasive

void SetRecordEngine(BtrCallFunction engine) {
    State().engine = engine != nullptr ? engine : &BTRCALL;
}

BtrCallFunction RecordEngine() {
    return State().engine;
}

int16_t& LastStatus() {
    return State().lastStatus;
}
bool& QuietFlag() {
    return State().quiet;
}
bool& AutomaticMode() {
    return State().automatic;
}
bool& CallHistoryEnabled() {
    return State().historyEnabled;
}
bool& UpperCaseEnabled() {
    return State().upperCaseEnabled;
}

bool& UpperCaseKey(int base, int fileNumber, int keyNumber) {
    static bool outside = false;
    if (base < 0 || base >= kSlotBases || fileNumber < 0 || fileNumber >= kCatalogueSize ||
        keyNumber < 0 || keyNumber >= kKeys) {
        outside = false;
        return outside;
    }
    return State().tables->upperCase[base][fileNumber][keyNumber];
}

std::vector<std::string> CallHistory(int base) {
    const auto& lines = History(base);
    return {lines.begin(), lines.end()};
}

void SetProgramEnd(std::function<void(const std::string& reason)> end) {
    State().programEnd = std::move(end);
}

void ResetRecordAccess() {
    LayerState& state = State();
    state.tables = std::make_unique<Tables>();
    state.lastStatus = 0;
    state.quiet = false;
    state.automatic = false;
    state.historyEnabled = true;
    state.upperCaseEnabled = false;
    pervasive::ResetNetworkIncidentTime();
}

void BTRieve(int base, uint16_t operation, std::string& data, std::string& key, int keyNumber,
             int fileNumber, int station, const std::string& caller) {
    TraceProcedure(kModule, "BTRieve");
    static const std::string procedure = ProcName("BTRieve", kModule);
    Guarded<int>(procedure, 0, [&] {
        if (operation == btr::kGetLessThan || operation == btr::kGetLessOrEqual) {
            // High-value filler is lowered to the highest letter so that the engine positions
            // below the range instead of past its end.
            std::replace(key.begin(), key.end(), '\xff', 'z');
        }
        if (station < 1) station = 1;
        bool history = CallHistoryEnabled();
        if (history) {
            AddCallToHistory(base, fileNumber, station, operation, keyNumber,
                             SearchesByKey(operation) ? key : data, caller);
        }
        GuardedCall(base, operation, data, key, keyNumber, fileNumber, station, caller);
        if (history) NoteStatusInHistory(base);
        return 0;
    });
}

int16_t BTRieve_Reel(int base, int fileNumber, int station, uint16_t operation, std::string& data,
                     std::string& key, int keyNumber) {
    TraceProcedure(kModule, "BTRieve_Reel");
    static const std::string procedure = ProcName("BTRieve_Reel", kModule);
    return Guarded<int16_t>(procedure, btr::kIoError, [&]() -> int16_t {
        if (station < 1) station = 1;
        if (!ValidSlot(base, fileNumber, station) || fileNumber > kLastRealFile) {
            GestionDesErreurs(9, "Subscript out of range: file " + std::to_string(fileNumber),
                              procedure);
            return btr::kInvalidOperation;
        }
        Slot& slot = SlotAt(base, fileNumber, station);
        uint32_t recordLength = RecordLengthOf(slot, fileNumber);
        // The engine works on copies: the caller's buffers change only once it has answered.
        CallBuffers& shared = SharedCallBuffers();
        CallBuffers own;
        CallBuffers& buffers = shared.busy ? own : shared;
        struct Busy {
            bool& flag;
            ~Busy() { flag = false; }
        } busy{buffers.busy};
        buffers.busy = true;
        std::string& buffer = buffers.data;
        buffer.assign(data);
        if (recordLength != 0) buffer.resize(recordLength, ' ');
        auto dataLength = static_cast<uint32_t>(buffer.size());
        std::string& keyBuffer = buffers.key;
        keyBuffer.assign(key);
        if (keyBuffer.size() < kKeyBufferSize) keyBuffer.resize(kKeyBufferSize, '\0');
        auto keyLength = static_cast<uint8_t>(std::min(keyBuffer.size(), kKeyBufferSize));

        int16_t status =
            RecordEngine()(operation, slot.positionBlock.data(), buffer.data(), &dataLength,
                           keyBuffer.data(), keyLength, static_cast<int8_t>(keyNumber));

        data.assign(buffer.data(), std::min<size_t>(dataLength, buffer.size()));
        size_t keep =
            std::max(key.size(),
                     static_cast<size_t>(std::max(0, CatalogueKeyLength(fileNumber, keyNumber))));
        key.assign(keyBuffer.data(), std::min(keep, keyBuffer.size()));
        return status;
    });
}

}  // namespace toverin
