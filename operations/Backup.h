// The backup of a base: every selected record file of every station copied record by record into
// today's weekday folder ("Lundi" .. "Dimanche": seven generations) under one backup root, then
// copied whole to the other root, with a copy of the base's settings folder beside them.
#pragma once

#include "operations/BackupSettings.h"
#include "operations/OperationView.h"

namespace toverin {

struct BackupOutcome {
    bool started = false;   // false: a backup of the base was already running
    bool finished = false;  // ran to its end (not stopped, no error ended it)
    bool stopped = false;
    int failedFiles = 0;  // station files that could not be backed up
    long long records = 0;
};

// Backs up base `base` (0-based); `all` ignores the history days (full backup).
BackupOutcome BackupData(int base, bool all, const BackupOptions& options, OperationView& view);
BackupOutcome BackupData(int base, bool all, OperationView& view);

// The Backup tab's buttons.
void CommandBkpNow_Click(int base, OperationView& view);
void CommandBkpPause_Click(int base, OperationView& view);
void CommandBkpStop_Click(int base);

// The weekday folders of a backup root: root + "_Backup/" + day + "/".
std::string BackupDayFolder(const std::string& root, const std::string& dayName);
// ".bt6" replaced by ".btr", without regard to case, everywhere in the name.
std::string BackupFileName(const std::string& stationFileName);

}  // namespace toverin
