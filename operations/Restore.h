// Restore of chosen stations' record files of a base from one of its seven weekday backups, and
// the (re)creation of empty record files.
//
// A restore never loses the live file: the backup is opened and counted first, each data file is
// rebuilt under a temporary name beside it, and takes the live file's place only when its copy
// is complete. A backup that cannot be read, a copy that fails and a run that is killed all leave
// the live file as it was.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "app/Progress.h"
#include "app/Site.h"
#include "operations/BackupSettings.h"

namespace toverin {

struct RestoreRequest {
    std::array<bool, kMaxStations> stations{};  // ListeRestaurationStation: line i is station i + 1
    std::array<bool, kCatalogueSize> files{};   // ListeDesFichiers
    std::string dayName;                        // ComboRestaurationJour
    // "Création d'une structure cible vide": ticked means the backup file is copied whole.
    bool createEmptyStructure = false;
    // Read the local backup root instead of the server's (the window always reads the server's).
    bool fromLocalRoot = false;
};

struct RestoreOutcome {
    int restoredFiles = 0;
    int failedFiles = 0;  // left as they were: backup unreadable, file in use, copy failed
    std::vector<std::string> failedNames;
    std::vector<std::string> missingNames;  // selected, but the day's backup holds no copy
    bool refused = false;                   // no station selected, or another run under way
    bool stopped = false;                   // the program's shutdown
    bool failed = false;  // the data folder takes no writes: the restore stopped there
};

RestoreOutcome RestoreData(int base, const RestoreRequest& request, const BackupOptions& options,
                           ProgressObserver& progress);
RestoreOutcome RestoreData(int base, const RestoreRequest& request, ProgressObserver& progress);

struct CreationRequest {
    std::array<bool, kMaxStations> stations{};  // ListeCreationStation
    std::array<bool, kCatalogueSize> files{};   // ListeDesFichiers
};

struct CreationOutcome {
    int created = 0;
    int kept = 0;  // the user chose to keep a file that held records
    int failed = 0;
    // The failures no box has named yet (a file in use has its own), said at the end of the run.
    std::vector<std::string> unsaidFailures;
    bool refused = false;
};

CreationOutcome CreateData(int base, const CreationRequest& request, ProgressObserver& progress);

}  // namespace toverin
