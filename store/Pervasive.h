// The record-file access layer (modules Lib_Data_Pervasive ...): the only place that talks to the
// record engine. It keeps, for every (base, file number, station), an open flag, a position block
// and the file's path, and issues every record operation through BTRieve, which retries on lock,
// conflict and transaction statuses, reports the other failures in the program's words, and
// leaves the engine status in LastStatus() for the caller to test.
//
// Indices: base 0..7 for the site's databases, plus a second bank (kCopyBank + base) that the
// backup and the restore use for the copies they write, so that a source and its copy each keep
// their own position block; file number 0..50 (catalogue); station 1..10; key number 0..8.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/engine/Btrieve.h"

namespace toverin {

inline constexpr int kCopyBank = 8;    // base index + kCopyBank: the copy's slot of that base
inline constexpr int kSlotBases = 16;  // 8 bases and their copies

// The engine behind the layer (our BTRCALL by default); tests put a scripted one here.
void SetRecordEngine(BtrCallFunction engine);
BtrCallFunction RecordEngine();

// The status of the latest engine call, -1 when BTRieve gave up after repeated conflicts.
int16_t& LastStatus();
// Report nothing for the statuses BTRieve would otherwise report after its retries.
bool& QuietFlag();
// The program runs unattended: errors are logged and end the program instead of asking.
bool& AutomaticMode();
// Keep the six-line call history per base (shown in error reports).
bool& CallHistoryEnabled();
// The site upper-cases the values returned on keys flagged for it.
bool& UpperCaseEnabled();
bool& UpperCaseKey(int base, int fileNumber, int keyNumber);
// The base's call history, newest first (at most six lines).
std::vector<std::string> CallHistory(int base);

// What ends the program when the layer must (an operation on an unopened file, Abort in an
// error report, an error in automatic mode). The default logs the reason, writes the log out and
// exits. A hook that returns (tests) makes the call in progress give up with its status.
// An empty function restores the default.
void SetProgramEnd(std::function<void(const std::string& reason)> end);

// Resets every table (open flags, position blocks, paths, record lengths, histories, flags, the
// last network incident) as at start. The engine and the program-end hook stay as they are.
void ResetRecordAccess();

// The guarded call. `data` is the record buffer (Windows-1252 bytes; an empty one becomes 100
// blanks), `key` the key buffer, both in/out. The engine is handed the slot's record length of
// data and a 255-byte key buffer (the key padded with NULs); `data` comes back as long as the
// engine says, `key` at least as long as the key. The status is left in LastStatus().
// A write that meets a conflict re-reads its record by `key` before retrying (by the record's own
// key when `key` is blank), keeping the caller's `data`.
void BTRieve(int base, uint16_t operation, std::string& data, std::string& key, int keyNumber,
             int fileNumber, int station, const std::string& caller);
// One engine call on the slot, no retry and no report; returns the status. Files 0..49 only:
// any other number is a programming error, reported, and answered with status 1.
int16_t BTRieve_Reel(int base, int fileNumber, int station, uint16_t operation, std::string& data,
                     std::string& key, int keyNumber);

// Opens file `fileNumber` of base `base` for stations first..last at their catalogue paths in the
// base's data folder (files 40..49 are created empty when missing). Returns true when every
// station's file is open.
bool FichierPervasiveOuvrir(int base, int firstStation, int lastStation, int fileNumber);
void FichierPervasiveFermer(int base, int firstStation, int lastStation, int fileNumber);
// Opens `path` into the slot (base, fileNumber, station) with `openMode` (btr::OpenMode); the
// path must exist. Returns the engine status (12 when the path does not exist). A slot that was
// open is closed first.
int16_t OuvertureFichierBTrieve(int base, int fileNumber, const std::string& path,
                                uint32_t recordLength, int station, int8_t openMode);
// Closes the slot with Close (1): the engine's Stop (25) would release every file of the
// process, not just this one.
void FermetureFichierBTrieve(int base, int fileNumber, int station);
bool IsFileOpen(int base, int fileNumber, int station);
std::string OpenFilePath(int base, int fileNumber, int station);

// The full path of a station's file in the base's data folder ("" for the empty entries and for
// unknown bases). A copy bank slot (kCopyBank + base) answers with its base's data folder.
std::string DataFilePath(int base, int fileNumber, int station);

// Creates `path` empty with the catalogue layout of `fileNumber` (an existing file is replaced);
// retries once with a terminated name and traces the failure. Returns the engine status.
int16_t CreationFichierBTrieve(const std::string& path, int fileNumber);
// The number of records of an open slot (Stat), or -1 when the slot is not open.
long long RecordCount(int base, int fileNumber, int station);
// The number of records of a file on disk (opened read-only for the count), -1 when unreadable.
long long RecordCountOfFile(const std::string& path);

// The structure reading: "F" line (record length, page size, keys, records) and one "K" line per
// key segment with its flag words; "" and a trace line when the file cannot be opened. The
// engine's Reset before it is skipped while the layer holds open files, since it would close them.
std::string LectureStructureFichier(int fileNumber, const std::string& path);
// The engine's version, components "major.minor" separated by a blank.
std::string VersionsMoteur();

// The message of a status (followed by a line feed).
std::string ErreurBTrieveLibelle(int status, const std::string& fileName);
// Reports the failed call in LastStatus() for the slot; returns the user's answer (Retry, Ignore
// or Ok), or Abort when the program was ended. Ok also when nothing was reported (status 0 or 80)
// and when an unattended run goes on after a network incident.
enum class ErrorChoice { Retry, Ignore, Ok, Abort };
ErrorChoice ErreurBTrieve(int base, int fileNumber, int station, const std::string& data,
                          const std::string& caller, bool quietBox, int operation);

}  // namespace toverin
