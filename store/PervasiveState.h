// What the access layer's files share: a bank's slots and call histories, and the way the program
// ends. Not for use outside store/Pervasive*.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "app/Site.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/Btrieve.h"

namespace toverin::pervasive {

inline constexpr int kStations = 10;
inline constexpr int kKeys = 9;
inline constexpr int kHistoryLines = 6;
// Files 0..49 are real; 50 exists in the catalogue's numbering only.
inline constexpr int kLastRealFile = 49;

inline constexpr const char* kModule = "Lib_Data_Pervasive";
inline constexpr const char* kModuleErrors = "Lib_Data_Pervasive_2";
inline constexpr const char* kModuleOpen = "Lib_Data_Pervasive_3";
inline constexpr const char* kModuleInfo = "Lib_Data_Pervasive_4";

// One (base, file number, station): what the engine needs to find the file again.
struct Slot {
    bool open = false;
    std::string positionBlock = std::string(btr::kPositionBlockSize, ' ');
    std::string path;
    uint32_t recordLength = 0;  // 0: the catalogue's
};

// One line of a base's call history. Nearly every call adds a line and nearly no line is ever
// read (only error reports show them), so a line keeps the call's parts as they came and is
// written out the first time somebody reads it.
struct HistoryEntry {
    int fileNumber = 0;
    int station = 0;
    uint16_t operation = 0;
    int keyNumber = 0;
    std::string buffer;  // the buffer's bytes as they came
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

    HistoryEntry& Newest() { return entries[newest]; }
    HistoryEntry& Push() {
        newest = (newest + 1) % entries.size();
        count = std::min(count + 1, entries.size());
        return entries[newest];
    }
    // The i-th line, newest first (i < count).
    HistoryEntry& At(size_t i) { return entries[(newest + entries.size() - i) % entries.size()]; }
};

// The line of an entry, written out on first reading.
const std::string& WrittenLine(HistoryEntry& entry);

bool ValidSlot(int base, int fileNumber, int station);
uint32_t RecordLengthOf(const Slot& slot, int fileNumber);

// Engine bytes made fit for a log line or a message: control characters become '.', the rest
// is read as Windows-1252; trailing blanks and NULs are dropped.
std::string Printable(std::string_view bytes);

// Ends the program through the installed hook. Returns only when the hook does (tests).
void EndProgram(const std::string& reason);

// Forgets when the last network incident was recorded.
void ResetNetworkIncidentTime();

// The files open in all the banks of the process (the engine's Reset would close them all).
int& OpenSlotsInProcess();

// The program's procedure name as the error hook and the procedure trace show it.
std::string ProcName(const char* name, const char* module);

}  // namespace toverin::pervasive

namespace toverin {

struct SlotBank::Tables {
    std::array<std::array<std::array<pervasive::Slot, pervasive::kStations>, kCatalogueSize>,
               kMaxBases>
        slots;
    std::array<pervasive::HistoryRing, kMaxBases> history;
};

}  // namespace toverin
