// The record-file access layer (modules Lib_Data_Pervasive ...): the only place that talks to the
// record engine. Every record operation goes through BTRieve, which retries on lock, conflict and
// transaction statuses, reports the other failures in the program's words, and leaves the engine
// status in LastStatus() for the caller to test.
//
// The files a client works on are held in its own SlotBank: for every (base, file number,
// station) an open flag, a position block and the file's path, with the base's call history.
// The window's operations, the scheduler's runs, the data viewer, each content tool and
// toverinctl each hold their own bank, so that opening a file for one never closes it for
// another, and a read by one never moves another's position.
//
// Indices: base 0..7; file number 0..50 (catalogue); station 1..10; key number 0..8.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/engine/Btrieve.h"

namespace toverin {

namespace pervasive {
struct Slot;
}

// ---- Settings of the whole process ---------------------------------------------------------

// The engine behind the layer (our BTRCALL by default); tests put a scripted one here. A bank
// calls the engine that is set when it makes the call.
void SetRecordEngine(BtrCallFunction engine);
BtrCallFunction RecordEngine();

// The program runs unattended: errors are logged and end the program instead of asking.
bool& AutomaticMode();
// Keep the six-line call history per base (shown in error reports).
bool& CallHistoryEnabled();
// The site upper-cases the values returned on keys flagged for it.
bool& UpperCaseEnabled();
bool& UpperCaseKey(int base, int fileNumber, int keyNumber);

// What ends the program when the layer must (an operation on an unopened file, Abort in an
// error report, an error in automatic mode). The default logs the reason, writes the log out and
// exits. A hook that returns (tests) makes the call in progress give up with its status.
// An empty function restores the default.
void SetProgramEnd(std::function<void(const std::string& reason)> end);

// Resets the settings above (but the engine and the program-end hook) and the last network
// incident, as at start.
void ResetRecordAccess();

// ---- Files, outside any bank ---------------------------------------------------------------

// The full path of a station's file in the base's data folder ("" for the empty entries and for
// unknown bases).
std::string DataFilePath(int base, int fileNumber, int station);

// Creates `path` empty with the catalogue layout of `fileNumber` (an existing file is replaced);
// retries once with a terminated name and traces the failure. Returns the engine status.
int16_t CreationFichierBTrieve(const std::string& path, int fileNumber);
// The number of records of a file on disk (opened read-only for the count), -1 when unreadable.
long long RecordCountOfFile(const std::string& path);
// The structure reading: "F" line (record length, page size, keys, records) and one "K" line per
// key segment with its flag words; "" and a trace line when the file cannot be opened. The
// engine's Reset before it is skipped while any bank holds open files, since it would close them.
std::string LectureStructureFichier(int fileNumber, const std::string& path);
// The engine's version, components "major.minor" separated by a blank.
std::string VersionsMoteur();
// The message of a status (followed by a line feed).
std::string ErreurBTrieveLibelle(int status, const std::string& fileName);

// The user's answer to an error report (Retry, Ignore or Ok), or Abort when the program was
// ended. Ok also when nothing was reported (status 0 or 80) and when an unattended run goes on
// after a network incident.
enum class ErrorChoice { Retry, Ignore, Ok, Abort };

// ---- One client's slots ----------------------------------------------------------------------

class SlotBank {
  public:
    // `client` names the bank in log lines ("Backup", "Visualisation", "toverinctl" ...).
    explicit SlotBank(std::string client = "");
    // Closes every file the bank still holds.
    ~SlotBank();
    SlotBank(const SlotBank&) = delete;
    SlotBank& operator=(const SlotBank&) = delete;

    const std::string& client() const { return client_; }

    // The status of the bank's latest engine call, -1 when BTRieve gave up after repeated
    // conflicts.
    int16_t LastStatus() const { return lastStatus_; }
    void setLastStatus(int16_t status) { lastStatus_ = status; }
    // Report nothing for the statuses BTRieve would otherwise report after its retries.
    bool quiet() const { return quiet_; }
    void setQuiet(bool quiet) { quiet_ = quiet; }
    // Browsing, for tools that look through files (the data viewer, toverinctl's dump): every
    // status comes back to the caller in LastStatus(). BTRieve and the opens then show no box,
    // log no report and never end the program, not even for a call on a file that is not open
    // (status 3). Locks and transactions are still waited out, and given up with their status
    // where the user would have been asked; a key number change that the re-read does not mend
    // comes back as 7; conflicts are retried as usual. An ErreurBTrieve call of the caller's own
    // still reports.
    bool browsing() const { return browsing_; }
    void setBrowsing(bool browsing) { browsing_ = browsing; }
    // The base's call history, newest first (at most six lines).
    std::vector<std::string> CallHistory(int base) const;

    // The guarded call. `data` is the record buffer (Windows-1252 bytes; an empty one becomes
    // 100 blanks), `key` the key buffer, both in/out. The engine is handed the slot's record
    // length of data and a 255-byte key buffer (the key padded with NULs); `data` comes back as
    // long as the engine says, `key` at least as long as the key. The status is left in
    // LastStatus(). An update or delete that meets a conflict reads its record again before
    // each retry, keeping the caller's `data` and `key`: by Get Equal on the file's unique key
    // (on the call's key where every key allows duplicates), then by Get Direct on the
    // position the record had when the conflict was met, so that the retry rewrites the record
    // that was read and never a sibling sharing its key value.
    void BTRieve(int base, uint16_t operation, std::string& data, std::string& key, int keyNumber,
                 int fileNumber, int station, const std::string& caller);
    // One engine call on the slot, no retry and no report; returns the status. Files 0..49 only:
    // any other number is a programming error, reported, and answered with status 1.
    int16_t BTRieve_Reel(int base, int fileNumber, int station, uint16_t operation,
                         std::string& data, std::string& key, int keyNumber);

    // Opens file `fileNumber` of base `base` for stations first..last at their catalogue paths in
    // the base's data folder (files 40..49 are created empty when missing). Returns true when
    // every station's file is open. A tool that rewrites many records opens the files it writes
    // accelerated (btr::kOpenAccelerated): its writes are then grouped and made durable when it
    // closes them.
    bool FichierPervasiveOuvrir(int base, int firstStation, int lastStation, int fileNumber,
                                int8_t openMode = btr::kOpenNormal);
    // The same for the NinSight interface's copy of `fileNumber`, which lies in the folder the
    // site names for it ("Dossier_NinSight" of the base's section of "KV3_Config.ini"); held in
    // the slot of station 1. False, with a log line, when the site names no such folder.
    bool FichierPervasiveOuvrirNinSight(int base, int fileNumber);
    void FichierPervasiveFermer(int base, int firstStation, int lastStation, int fileNumber);
    // Opens `path` into the slot (base, fileNumber, station) with `openMode` (btr::OpenMode); the
    // path must exist. Returns the engine status (12 when the path does not exist). A slot that
    // was open is closed first.
    int16_t OuvertureFichierBTrieve(int base, int fileNumber, const std::string& path,
                                    uint32_t recordLength, int station, int8_t openMode);
    // Closes the slot with Close (1): the engine's Stop (25) would release every file of the
    // process, not just this one.
    void FermetureFichierBTrieve(int base, int fileNumber, int station);
    void CloseAll();
    bool IsFileOpen(int base, int fileNumber, int station) const;
    std::string OpenFilePath(int base, int fileNumber, int station) const;
    // The number of records of an open slot (Stat), or -1 when the slot is not open.
    long long RecordCount(int base, int fileNumber, int station);
    // The structure of an open slot's file as the engine gives it (Stat): record length, keys
    // and their segments, record count. Returns the status (3 when the slot is not open).
    int16_t Stat(int base, int fileNumber, int station, btr::PbTBtrFileBuf& fileBuf);

    // Reports the failed call in LastStatus() for the slot and returns the user's answer: Abort
    // (and Cancel) end the program; Retry and Ignore send BTRieve back to the statuses it
    // repeats (7, locks, transactions, 54), and stop it on every other.
    ErrorChoice ErreurBTrieve(int base, int fileNumber, int station, const std::string& data,
                              const std::string& caller, bool quietBox, int operation);

    struct Tables;  // the slots and histories (store/PervasiveState.h)

  private:
    // The report behind ErreurBTrieve. `repeats`: the call goes on after Retry and Ignore, so
    // where nobody can answer the report ends the program rather than repeat it for ever.
    ErrorChoice Report(int base, int fileNumber, int station, const std::string& caller,
                       bool quietBox, int operation, bool repeats);
    // Opens a catalogue file at `path` into the slot; files 40..49 are created empty when
    // missing. True when it is open.
    bool OpenCatalogueFile(int base, int fileNumber, int station, const std::string& path,
                           int8_t openMode = btr::kOpenNormal);
    // Before the retry of a write that met a conflict: reads its record again (see BTRieve).
    void ReReadAfterConflict(int base, int fileNumber, int station, int keyNumber,
                             const std::string& data, const std::string& key,
                             const std::optional<std::string>& position);
    void GuardedCall(int base, uint16_t operation, std::string& data, std::string& key,
                     int keyNumber, int fileNumber, int station, const std::string& caller);
    // Valid indices only (pervasive::ValidSlot).
    pervasive::Slot& SlotAt(int base, int fileNumber, int station);
    const pervasive::Slot& SlotAt(int base, int fileNumber, int station) const;
    // The slot's path, else where the file would be in the base's data folder.
    std::string SlotPath(int base, int fileNumber, int station) const;
    void AddCallToHistory(int base, int fileNumber, int station, uint16_t operation, int keyNumber,
                          std::string_view buffer, const std::string& caller);
    void NoteStatusInHistory(int base);
    void AppendToNewestHistoryLine(int base, std::string_view text);

    std::string client_;
    std::unique_ptr<Tables> tables_;
    int16_t lastStatus_ = 0;
    bool quiet_ = false;
    bool browsing_ = false;
};

// Sets a bank's quiet flag for its lifetime and gives back what it was: the operation reports a
// failure itself (an open failure at night is logged and skipped instead of ending the program).
class ScopedQuiet {
  public:
    explicit ScopedQuiet(SlotBank& bank, bool quiet = true) : bank_(bank), previous_(bank.quiet()) {
        bank.setQuiet(quiet);
    }
    ~ScopedQuiet() { bank_.setQuiet(previous_); }
    ScopedQuiet(const ScopedQuiet&) = delete;
    ScopedQuiet& operator=(const ScopedQuiet&) = delete;

  private:
    SlotBank& bank_;
    bool previous_;
};

// Sets a bank's browsing mode for its lifetime and gives back what it was.
class ScopedBrowsing {
  public:
    explicit ScopedBrowsing(SlotBank& bank, bool browsing = true)
        : bank_(bank), previous_(bank.browsing()) {
        bank.setBrowsing(browsing);
    }
    ~ScopedBrowsing() { bank_.setBrowsing(previous_); }
    ScopedBrowsing(const ScopedBrowsing&) = delete;
    ScopedBrowsing& operator=(const ScopedBrowsing&) = delete;

  private:
    SlotBank& bank_;
    bool previous_;
};

}  // namespace toverin
