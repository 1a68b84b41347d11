// The backup of a base: every selected record file of every station copied record by record into
// today's weekday folder ("Lundi" .. "Dimanche": seven generations) under one backup root, then
// copied whole to the other root, with a copy of the base's settings folder beside them.
//
// A generation is replaced only by a complete one: each file is written under a temporary name
// and takes the place of last week's copy once it is complete and closed. A root that does not
// exist is never created, and a root that takes no writes (no space, read-only, permission
// refused) ends the run at once; any other failure ends only its file, and the run goes on.
#pragma once

#include <string>
#include <vector>

#include "app/Progress.h"
#include "operations/BackupSettings.h"

namespace toverin {

struct BackupOutcome {
    bool started = false;  // false: refused (another run under way, no such base)
    bool finished =
        false;             // ran to its end: not stopped, no error ended it (files may have failed)
    bool stopped = false;  // a confirmed stop, or the program's shutdown
    bool failed = false;   // an error ended it: a missing root, a root that takes no writes
    int copiedFiles = 0;
    int failedFiles = 0;  // station files that could not be backed up
    std::vector<std::string> failedNames;
    long long records = 0;
    std::string error;  // what ended it, when failed (French, as shown)

    progress::Outcome Result() const;
    // Good: ran to its end and every file was copied.
    bool Good() const { return finished && failedFiles == 0; }
};

// Backs up base `base` (0-based); `all` ignores the history days (full backup).
BackupOutcome BackupData(int base, bool all, const BackupOptions& options,
                         ProgressObserver& progress);
BackupOutcome BackupData(int base, bool all, ProgressObserver& progress);

// The Backup tab's buttons.
void CommandBkpNow_Click(int base, ProgressObserver& progress);
void CommandBkpPause_Click(int base, ProgressObserver& progress);
void CommandBkpStop_Click(int base);

// The weekday folders of a backup root: root + "_Backup/" + day + "/".
std::string BackupDayFolder(const std::string& root, const std::string& dayName);
// ".bt6" replaced by ".btr", without regard to case, everywhere in the name.
std::string BackupFileName(const std::string& stationFileName);
// The file a backup of `base` holds locked while it runs, in whatever program it runs.
std::string BackupLockFile(int base);

}  // namespace toverin
