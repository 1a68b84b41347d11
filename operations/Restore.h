// Restore of chosen stations' record files of a base from one of its seven weekday backups on
// the server root, and the (re)creation of empty record files.
#pragma once

#include <array>
#include <string>

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
};

struct RestoreOutcome {
    int restoredFiles = 0;
    int failedFiles = 0;
    bool refused = false;  // no station selected
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
    bool refused = false;
};

CreationOutcome CreateData(int base, const CreationRequest& request, ProgressObserver& progress);

}  // namespace toverin
