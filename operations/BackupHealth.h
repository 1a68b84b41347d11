// What the program knows of a base's backups between runs: how the last run ended (kept in the
// base's "KV3_Toverin_Serveur.ini"), the age of the last good backup, a run that a crash or a
// power loss interrupted, and a planned backup missed while the program was off. The unattended
// site's first question is "did last night work?": the Backup tab and the incident list answer it.
#pragma once

#include <optional>
#include <string>

#include "app/Clock.h"
#include "operations/Planning.h"

namespace toverin {

struct LastRun {
    std::optional<LocalTime> start;
    // "Finished", "Incomplete", "Stopped", "Failed", "Interrupted"; "" while a run is under way.
    std::string result;
    std::string detail;  // what failed or ended it, as shown (French)
};

LastRun LoadLastRun(int base);
void SaveLastRun(int base, const LastRun& run);

// The last good backup of the base ("Bk_Sys.ini" [Sauvegarde] Date), when there is one.
std::optional<LocalTime> LastGoodBackup(int base);
// "Dernier backup réussi il y a 3 jours" and the like, or that there is none.
std::string BackupAgeText(const std::optional<LocalTime>& lastGood, LocalTime now);
// The last run as the Backup tab shows it ("" when it finished, or when there was none).
std::string LastRunText(const LastRun& run);

// At start-up, for one base: a "Start" = "ON" left in "BK_PRG.ini" while no backup of the base
// runs anywhere (a crash, a power loss, a kill) is set back to "0FF", and the run is logged,
// recorded as interrupted and put in the incident list. For a base whose backups are planned, a
// last good backup older than `staleDays` days, or a planned backup that passed while the program
// was off, gets an incident too. Returns the warning to show for the base ("" when all is well).
std::string CheckBackupAtStartup(int base, const OperationPlan& backupPlan, int staleDays,
                                 LocalTime now);

}  // namespace toverin
