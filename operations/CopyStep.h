// The step the backup and the restore share: one station's record file copied record by record
// into a new file under a temporary name beside its target, which replaces the target only when
// the copy is complete and closed cleanly (and, for a backup, is then copied whole to the other
// root). A copy that fails or is stopped leaves the target as it was: last week's backup, or the
// live data file.
//
//   open the source (and count it) > check the target can be replaced > create the new file >
//   open it > copy > close both > replace the target > spread it to the other root
//
// Each operation keeps its own failure lines and boxes (CopyMessages); the step says how it went
// and, when it failed writing, whether the folder it wrote into takes writes at all.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/Progress.h"
#include "store/Pervasive.h"
#include "store/RecordCopy.h"

namespace toverin {

// The two banks of a copy: the files read and the copies written, so that a source and its copy
// each keep their own position block.
struct CopyBanks {
    SlotBank& sources;
    SlotBank& copies;
};

enum class CopyMessages {
    Backup,   // the backup's lines; a damaged file may ask for a key; failures shown in boxes
    Restore,  // the restore's lines; failures logged and reported by the access layer
};

struct KeyRange {
    std::string lower;
    std::string upper;
};

// A finished backup copy that goes whole to the other root.
struct Spread {
    std::string target;         // the copy on the other root ("" : none)
    bool sameFolder = false;    // both roots are one folder: nothing to copy, say so
    std::string recordDay;      // the day folder of the record copy, for that line
    bool towardsServer = true;  // which way it goes, for the lines
};

struct StationFileJob {
    int base = 0;
    int fileNumber = 0;
    int station = 1;
    std::string source;  // the file read
    std::string target;  // the file replaced by the complete copy
    // The open mode of the new file: accelerated for a backup, normal for a restored data file.
    int8_t targetMode = btr::kOpenAccelerated;
    CopyMessages messages = CopyMessages::Backup;
    std::string targetRole;  // "local" or "server": names the backup's target in its lines
    int keyNumber = 0;
    bool descending = false;
    std::vector<KeyRange> ranges;  // read one after the other
    bool keyDialog = false;        // a damaged source: ask for a key to go on from
    // A restore with "Création d'une structure cible vide" ticked: the file is copied whole, and
    // record by record only when that copy cannot be made.
    bool wholeFile = false;
    std::function<RecordAction(std::string& record)> rewrite;
    // After each record: false ends the copy (a confirmed stop).
    std::function<bool()> afterRecord;
    Spread spread;
};

enum class StepStatus {
    Done,          // the target is the new, complete copy
    SourceFailed,  // the source could not be opened
    TargetKept,    // the target could not be replaced (in use, not a file): it is as it was
    CopyFailed,    // the new file could not be made, read or written in full: target as it was
    Stopped,       // a confirmed stop: target as it was
};

struct StationFileResult {
    StepStatus status = StepStatus::CopyFailed;
    long long copied = 0;
    long long expected = 0;  // records the source held
    // The source was damaged and read around from keys the user typed: the copy holds all that
    // could be read, and is reported all the same.
    bool readAround = false;
    bool copiedWhole = false;  // the whole-file way made it
    // The copy to the other root failed (the record copy itself is in place).
    bool spreadFailed = false;
    // When writing failed: the system's error for the folder written into, when that folder does
    // not take writes at all (no space, read-only, permission refused): every later file would
    // fail there too. 0 otherwise.
    int folderError = 0;
    std::string folder;  // that folder

    bool ok() const { return status == StepStatus::Done && !readAround && !spreadFailed; }
};

StationFileResult CopyStationFile(CopyBanks banks, const StationFileJob& job,
                                  ProgressObserver& progress);

// The temporary name a file is rebuilt under, beside it.
std::string NewCopyName(const std::string& target);

}  // namespace toverin
