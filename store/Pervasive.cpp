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

// What every bank shares: the engine, the site's settings for the layer, and how the program ends.
struct LayerSettings {
    BtrCallFunction engine = &BTRCALL;
    bool automatic = false;
    bool historyEnabled = true;
    bool upperCaseEnabled = false;
    std::array<std::array<std::array<bool, kKeys>, kCatalogueSize>, kMaxBases> upperCase{};
    std::function<void(const std::string&)> programEnd;
    int openSlots = 0;
};

LayerSettings& Settings() {
    static LayerSettings settings;
    return settings;
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

// The first key of a catalogue file whose values are unique, -1 when every key allows
// duplicates.
int UniqueKeyOf(int fileNumber) {
    static const std::array<int, kCatalogueSize> unique = [] {
        std::array<int, kCatalogueSize> table{};
        for (int f = 0; f < kCatalogueSize; ++f) {
            table[f] = -1;
            std::vector<std::vector<KeySegment>> keys = KeysOf(f);
            for (size_t k = 0; k < keys.size(); ++k) {
                if (!keys[k].empty() && (keys[k][0].flags & btr::kKeyDuplicates) == 0) {
                    table[f] = static_cast<int>(k);
                    break;
                }
            }
        }
        return table;
    }();
    return fileNumber >= 0 && fileNumber < kCatalogueSize ? unique[fileNumber] : -1;
}

bool IsBlank(const std::string& key) {
    return key.find_first_not_of(std::string(" \0", 2)) == std::string::npos;
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

}  // namespace

namespace pervasive {

bool ValidSlot(int base, int fileNumber, int station) {
    return base >= 0 && base < kMaxBases && fileNumber >= 0 && fileNumber < kCatalogueSize &&
           station >= 1 && station <= kStations;
}

uint32_t RecordLengthOf(const Slot& slot, int fileNumber) {
    return slot.recordLength != 0 ? slot.recordLength : CatalogueEntryFor(fileNumber).recordLength;
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
    auto& end = Settings().programEnd;
    if (end) {
        end(reason);
        return;
    }
    DefaultProgramEnd(reason);
}

int& OpenSlotsInProcess() {
    return Settings().openSlots;
}

std::string ProcName(const char* name, const char* module) {
    return std::string(name) + ":" + module;
}

}  // namespace pervasive

// ---- Process-wide settings -------------------------------------------------------------------

void SetRecordEngine(BtrCallFunction engine) {
    Settings().engine = engine != nullptr ? engine : &BTRCALL;
}

BtrCallFunction RecordEngine() {
    return Settings().engine;
}

bool& AutomaticMode() {
    return Settings().automatic;
}
bool& CallHistoryEnabled() {
    return Settings().historyEnabled;
}
bool& UpperCaseEnabled() {
    return Settings().upperCaseEnabled;
}

bool& UpperCaseKey(int base, int fileNumber, int keyNumber) {
    static bool outside = false;
    if (base < 0 || base >= kMaxBases || fileNumber < 0 || fileNumber >= kCatalogueSize ||
        keyNumber < 0 || keyNumber >= kKeys) {
        outside = false;
        return outside;
    }
    return Settings().upperCase[base][fileNumber][keyNumber];
}

void SetProgramEnd(std::function<void(const std::string& reason)> end) {
    Settings().programEnd = std::move(end);
}

void ResetRecordAccess() {
    LayerSettings& settings = Settings();
    settings.automatic = false;
    settings.historyEnabled = true;
    settings.upperCaseEnabled = false;
    settings.upperCase = {};
    pervasive::ResetNetworkIncidentTime();
}

// ---- The bank --------------------------------------------------------------------------------

SlotBank::SlotBank(std::string client)
    : client_(std::move(client)), tables_(std::make_unique<Tables>()) {}

SlotBank::~SlotBank() {
    CloseAll();
}

void SlotBank::CloseAll() {
    for (int base = 0; base < kMaxBases; ++base)
        for (int file = 0; file < kCatalogueSize; ++file)
            for (int station = 1; station <= kStations; ++station)
                if (SlotAt(base, file, station).open) FermetureFichierBTrieve(base, file, station);
}

Slot& SlotBank::SlotAt(int base, int fileNumber, int station) {
    return tables_->slots[base][fileNumber][station - 1];
}

const Slot& SlotBank::SlotAt(int base, int fileNumber, int station) const {
    return tables_->slots[base][fileNumber][station - 1];
}

std::string SlotBank::SlotPath(int base, int fileNumber, int station) const {
    if (!ValidSlot(base, fileNumber, station)) return "";
    const Slot& slot = SlotAt(base, fileNumber, station);
    return slot.path.empty() ? DataFilePath(base, fileNumber, station) : slot.path;
}

bool SlotBank::IsFileOpen(int base, int fileNumber, int station) const {
    return ValidSlot(base, fileNumber, station) && SlotAt(base, fileNumber, station).open;
}

std::string SlotBank::OpenFilePath(int base, int fileNumber, int station) const {
    return ValidSlot(base, fileNumber, station) ? SlotAt(base, fileNumber, station).path : "";
}

std::vector<std::string> SlotBank::CallHistory(int base) const {
    std::vector<std::string> lines;
    if (base < 0 || base >= kMaxBases) return lines;
    HistoryRing& ring = tables_->history[base];
    for (size_t i = 0; i < ring.count; ++i) lines.push_back(WrittenLine(ring.At(i)));
    return lines;
}

// Notes a call in the history; its line is written out when it is read.
void SlotBank::AddCallToHistory(int base, int fileNumber, int station, uint16_t operation,
                                int keyNumber, std::string_view buffer, const std::string& caller) {
    if (base < 0 || base >= kMaxBases) return;
    HistoryEntry& entry = tables_->history[base].Push();
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

void SlotBank::AppendToNewestHistoryLine(int base, std::string_view text) {
    if (base < 0 || base >= kMaxBases) return;
    HistoryRing& ring = tables_->history[base];
    if (ring.count == 0) return;
    HistoryEntry& entry = ring.Newest();
    (entry.written ? entry.line : entry.appended).append(text);
}

// The status goes on the newest line once, after the call's last word on it.
void SlotBank::NoteStatusInHistory(int base) {
    if (base < 0 || base >= kMaxBases) return;
    HistoryRing& ring = tables_->history[base];
    if (ring.count == 0) return;
    HistoryEntry& entry = ring.Newest();
    if (!entry.written) {
        if (entry.appended.find("S:") != std::string::npos) return;
    } else {
        const std::string& newest = WrittenLine(entry);
        size_t close = newest.rfind(']');
        if (close != std::string::npos && newest.find("S:", close) != std::string::npos) return;
    }
    AppendToNewestHistoryLine(base, " S:" + std::to_string(lastStatus_));
}

void SlotBank::BTRieve(int base, uint16_t operation, std::string& data, std::string& key,
                       int keyNumber, int fileNumber, int station, const std::string& caller) {
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

// One guarded call, without the history around it.
void SlotBank::GuardedCall(int base, uint16_t operation, std::string& data, std::string& key,
                           int keyNumber, int fileNumber, int station, const std::string& caller) {
    static const std::string procedure = ProcName("BTRieve", kModule);
    if (station > kStations || !ValidSlot(base, fileNumber, 1)) {
        GestionDesErreurs(9, "Subscript out of range", procedure, "BTrieve (" + caller + ")");
        lastStatus_ = operation == btr::kGetEqual ? btr::kKeyNotFound : btr::kEndOfFile;
        return;
    }
    if (!SlotAt(base, fileNumber, station).open) {
        // A caller that skipped its open test would work on whatever the block points to.
        std::string path = SlotPath(base, fileNumber, station);
        GestionDesErreurs(2003, "File not open: " + path, procedure, "BTrieve (" + caller + ")");
        lastStatus_ = btr::kFileNotOpen;
        if (browsing_) return;  // the browsing tool hears of it through the status
        ErrorChoice choice =
            ErreurBTrieve(base, fileNumber, station, data, caller, false, operation);
        if (choice != ErrorChoice::Abort)
            EndProgram("Operation " + std::to_string(operation) + " on a file not open: " + path +
                       " (" + caller + ")");
        return;
    }
    if (data.empty()) data.assign(kEmptyDataBuffer, ' ');

    // After a report, Retry and Ignore both go back to the call, which repeats for the statuses
    // that say so and stops for the others; only Abort ends (the program, or, with a hook that
    // returns, the call with its status). A browsing bank is told nothing but the status: the
    // call gives up where it would ask.
    const bool silent = quiet_ || browsing_;
    auto reportAndRepeat = [&] {
        if (browsing_) return false;
        return Report(base, fileNumber, station, caller, false, operation, true) !=
               ErrorChoice::Abort;
    };
    auto reRead = [&](std::string& d, std::string& k) {
        return BTRieve_Reel(base, fileNumber, station, btr::kGetEqual, d, k, keyNumber);
    };
    int retries = 0;  // one count for the whole call, whatever the statuses met on the way
    // The position of the record a write is about, taken at its first conflict: the failed
    // write leaves that record current.
    std::optional<std::string> position;
    bool positionAsked = false;
    for (;;) {
        int16_t status = BTRieve_Reel(base, fileNumber, station, operation, data, key, keyNumber);
        lastStatus_ = status;
        if (status == btr::kSuccess) break;

        if (status == btr::kDifferentKeyNumber) {
            // Files 34 and 35 are walked and rewritten on a key their callers change on purpose.
            if ((operation == btr::kUpdate && fileNumber == 35) ||
                ((operation == btr::kGetNext || operation == btr::kGetPrevious) &&
                 fileNumber == 34)) {
                lastStatus_ = btr::kSuccess;
                break;
            }
            if (operation == btr::kGetNext || operation == btr::kGetPrevious) {
                if (reRead(data, key) == btr::kSuccess) {
                    lastStatus_ = btr::kSuccess;
                    break;
                }
                lastStatus_ = status;
            }
            if (!reportAndRepeat()) break;
            continue;
        }
        if (IsTransactionStatus(status) || IsLockStatus(status)) {
            // Another workstation holds the record, the file or a transaction: wait it out,
            // asking the user from the eleventh time on (every time). Only success or Abort
            // ends the wait.
            if (++retries > kRetryLimit && !reportAndRepeat()) break;
            AppClock().Sleep(kLockWait);
            continue;
        }
        if (status == 54 || status == btr::kConflict) {
            if (status == 54) {
                if (operation == btr::kUpdate && fileNumber == 35) {
                    lastStatus_ = btr::kSuccess;
                    break;
                }
                if (!silent && !reportAndRepeat()) break;
            }
            if (++retries > kRetryLimit) {
                lastStatus_ = -1;  // the caller decides; nobody is asked
                break;
            }
            const bool write = operation == btr::kUpdate || operation == btr::kDelete;
            if (write && !positionAsked) {
                positionAsked = true;
                std::string d, k = key;
                if (BTRieve_Reel(base, fileNumber, station, btr::kGetPosition, d, k, keyNumber) ==
                        btr::kSuccess &&
                    d.size() >= 4)
                    position = d.substr(0, 4);
            }
            if (write && !position && UniqueKeyOf(fileNumber) < 0) {
                // Only a position tells a record from siblings that share its key values.
                TraceLog("Err: BTrieve: file " + std::to_string(fileNumber) +
                         ": a record changed by another user cannot be told from its siblings |"
                         "Write given up (" +
                         caller + ")");
                lastStatus_ = -1;
                break;
            }
            AppClock().Sleep(kConflictWait);
            // The record changed under us: read it again so the engine takes our write as made
            // on its latest version.
            if (write)
                ReReadAfterConflict(base, fileNumber, station, keyNumber, data, key, position);
            continue;
        }
        // Any other status ends the call; duplicate keys on writes and key-not-found or
        // end-of-file on reads are the caller's to test, and said nothing of.
        bool write = operation == btr::kInsert || operation == btr::kUpdate;
        bool expected = write ? status == btr::kDuplicateKey
                              : (status == btr::kKeyNotFound || status == btr::kDuplicateKey ||
                                 status == btr::kEndOfFile);
        if (!silent && !expected)
            Report(base, fileNumber, station, caller, false, operation, false);
        break;
    }

    if (lastStatus_ == btr::kSuccess && UpperCaseEnabled() && keyNumber >= 0 && keyNumber < kKeys &&
        UpperCaseKey(base, fileNumber, keyNumber))
        data = UpperCp1252(data);
}

void SlotBank::ReReadAfterConflict(int base, int fileNumber, int station, int keyNumber,
                                   const std::string& data, const std::string& key,
                                   const std::optional<std::string>& position) {
    const int unique = UniqueKeyOf(fileNumber);
    std::string d = data;
    std::string k;
    if (unique >= 0) {
        // Its unique key names the record, as the caller's record carries it.
        k = KeyOf(fileNumber, unique, data);
    } else {
        // A caller that did not keep the key of its read: the record names itself.
        k = IsBlank(key) ? KeyOf(fileNumber, keyNumber, data) : key;
    }
    BTRieve_Reel(base, fileNumber, station, btr::kGetEqual, d, k, unique >= 0 ? unique : keyNumber);
    if (position) {
        // The position settles it where the key value does not (siblings, or a unique key the
        // caller is changing), and makes the record current on the call's key again, where
        // the caller's next read goes on.
        d = *position;
        BTRieve_Reel(base, fileNumber, station, btr::kGetDirect, d, k, keyNumber);
    }
}

int16_t SlotBank::BTRieve_Reel(int base, int fileNumber, int station, uint16_t operation,
                               std::string& data, std::string& key, int keyNumber) {
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
