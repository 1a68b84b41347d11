// The record-by-record copy that the backup and the restore share: positions on a bound of a key,
// reads on in one direction until the other bound or the end of the file, and inserts every
// record into the copy, yielding to the interface every 20 records.
#pragma once

#include <functional>
#include <string>

#include "operations/OperationView.h"

namespace toverin {

struct RecordCopyJob {
    int base = 0;  // source slot: (base, fileNumber, station)
    int fileNumber = 0;
    int station = 1;
    int targetBase = 0;  // the copy's slot base (same file number and station)
    int keyNumber = 0;
    std::string lower;  // bounds, compared with the keys read as byte strings
    std::string upper;
    bool descending = false;
    std::string sourcePath;
    std::string targetPath;
    bool skipSites = false;      // file 29: "SITES" records stay behind
    bool backupMessages = true;  // backup's failure lines and boxes; else the restore's
    bool keyDialog = false;      // a damaged file: ask for a key to resume from
    // Progress controls (empty: not shown).
    OperationView* view = nullptr;
    std::string keyControl;
    std::string recordsControl;
    int controlIndex = 0;
    long long expected = 0;
    // Called after each record; false ends the copy (a confirmed stop).
    std::function<bool()> afterRecord;
};

struct RecordCopyResult {
    long long copied = 0;
    bool stopped = false;
    bool readError = false;   // a read failed other than at the end of the file
    bool writeError = false;  // an insert into the copy failed (other than a duplicate key)
};

// The job copying station `station`'s file `fileNumber` of `base` from its source slot into the
// copy bank, with the tab's key label and record bar as progress. Bounds and direction are the
// caller's.
RecordCopyJob CopyJobFor(int base, int fileNumber, int station, const std::string& sourcePath,
                         const std::string& targetPath, OperationView& view,
                         const std::string& keyControl, const std::string& recordsControl,
                         long long expected);

RecordCopyResult CopyRecords(const RecordCopyJob& job);

// Closes the source and the copy of `job`. False (and a log line) when the copy's writes did not
// all reach the disk: such a copy is no backup and must not be spread or trusted.
bool CloseCopy(const RecordCopyJob& job, const RecordCopyResult& copy);

// Silences the record layer's own reports while the operation reports a failure itself (an open
// failure at night is logged and skipped instead of ending the program).
class ScopedQuiet {
  public:
    ScopedQuiet();
    ~ScopedQuiet();
    ScopedQuiet(const ScopedQuiet&) = delete;
    ScopedQuiet& operator=(const ScopedQuiet&) = delete;

  private:
    bool previous_;
};

// A key as the progress label shows it: printable, without trailing blanks or fillers.
std::string PrintableKey(const std::string& key);

}  // namespace toverin
