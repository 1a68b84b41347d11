// The catalogue of a base's record files: numbers 0..50, their names, French descriptions,
// record lengths, page sizes and keys. Built once from constants; nothing is read from disk.
// Every other part of the program names a record file by its number here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/engine/Btrieve.h"

namespace toverin {

inline constexpr int kCatalogueSize = 51;  // file numbers 0..50; 8, 36 and 50 are empty

struct KeySegment {
    uint16_t position = 0;  // 1-based byte offset in the record
    uint16_t length = 0;
    uint16_t flags = 0;  // engine key flags; kKeySegmented means the next segment continues the key
    bool Continues() const { return (flags & btr::kKeySegmented) != 0; }
};

struct CatalogueEntry {
    int number = 0;
    std::string description;  // UTF-8, shown as it stands
    std::string name;         // 8 characters, "FRAD022 "; blank for the empty entries
    char perStation = 'N';    // 'O': one file per station, 'N': one file for the whole base
    char secondMark = 'N';    // 'O' only for 47
    uint32_t recordLength = 0;
    uint32_t pageSize = 0;
    uint32_t keyCount = 0;
    std::vector<KeySegment> segments;  // all keys' segments, key 0 first

    bool Exists() const { return recordLength != 0; }
};

// Entry of a file number 0..50; numbers outside that range get an empty entry.
const CatalogueEntry& CatalogueEntryFor(int fileNumber);

std::string FileDescription(int fileNumber);
// The file's line in the file lists (backup, creation, viewer): number on two digits, a blank,
// the description ("22 Morceaux"); the description starts at the fourth character.
std::string FileListLine(int fileNumber);

// "FRADC22.bt6" for file 22 of station 3, "FRAD003.bt6" for the common file 3; "" for the empty
// entries. Station 1..10 gives the letters A..J.
std::string StationFileName(int fileNumber, int station);
// A name that has a digit as its fifth character is common to the base (not per station).
bool IsCommonFileName(const std::string& name);

// The record given to Create: record length, page size, key count and key segments.
btr::PbTBtrFileBuf CreationRecord(int fileNumber);
// Segments grouped per key (key 0 first).
std::vector<std::vector<KeySegment>> KeysOf(int fileNumber);
// Total length of key `keyNumber` (sum of its segments), 0 when the file has no such key.
int KeyLength(int fileNumber, int keyNumber);

// History files: the backup reads them downwards from their most recent date and, in a limited
// backup, stops at the oldest day kept. Their bounds are built on these lengths: the date, then
// `HistoryFiller` bytes, makes a key of `HistoryKeyLength`.
bool IsHistoryFile(int fileNumber);
int HistoryKeyLength(int fileNumber);  // 0 for other files
int HistoryFiller(int fileNumber);     // 0 for other files
// The key of a history file whose value starts with the "YYYYMMDD" date. It is key 0 for most;
// file 17 has its date key second and file 18 third, behind its song and customer keys.
int HistoryKeyNumber(int fileNumber);  // -1 for other files

}  // namespace toverin
