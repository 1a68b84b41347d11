// What the access layer's files share: the per-slot tables, the call history and the way the
// program ends. Not for use outside store/Pervasive*.cpp.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "store/Catalogue.h"
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

bool ValidSlot(int base, int fileNumber, int station);
// Valid indices only (ValidSlot).
Slot& SlotAt(int base, int fileNumber, int station);
bool AnySlotOpen();
// The slot's path, else where the file would be in the base's data folder.
std::string SlotPath(int base, int fileNumber, int station);
uint32_t RecordLengthOf(const Slot& slot, int fileNumber);

// The base's history, newest first; bases outside the slots have none.
const std::deque<std::string>& History(int base);
void AddHistoryLine(int base, std::string line);
void AppendToNewestHistoryLine(int base, std::string_view text);

// Engine bytes made fit for a log line or a message: control characters become '.', the rest
// is read as Windows-1252; trailing blanks and NULs are dropped.
std::string Printable(std::string_view bytes);

// Ends the program through the installed hook. Returns only when the hook does (tests).
void EndProgram(const std::string& reason);

// Forgets when the last network incident was recorded.
void ResetNetworkIncidentTime();

// The program's procedure name as the error hook and the procedure trace show it.
std::string ProcName(const char* name, const char* module);

}  // namespace toverin::pervasive
