// The scheduler behind TimerMain: every tick it looks at each base in turn and starts the
// backups, then the exports, then the imports that are due, on the interface thread, one after
// the other. It also announces the next backup to the suite's other programs in "BK_PRG.ini".
#pragma once

#include <array>
#include <functional>
#include <optional>

#include "app/Clock.h"
#include "app/Progress.h"
#include "app/Site.h"
#include "operations/Backup.h"
#include "operations/Planning.h"

namespace toverin {

enum class PlanKind { Backup, Export, Import };

struct ScheduleState {
    bool armed = false;
    LocalTime next{};
};

class Scheduler {
  public:
    Scheduler() = default;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    // Loads every base's plan and computes the three next dates.
    void Load();
    BasePlan& Plan(int base) { return plans_[base]; }
    // After a change of the plan: saved, and the dates computed again.
    void Save(int base);

    void DetermineDateProchainBackup(int base);
    void DetermineDateProchainExport(int base);
    void DetermineDateProchainImport(int base);

    // One tick of TimerMain.
    void TimerMain_Timer();

    const ScheduleState& Backup(int base) const { return backup_[base]; }
    const ScheduleState& Export(int base) const { return export_[base]; }
    const ScheduleState& Import(int base) const { return import_[base]; }

    // The standby check that ends each tick (the interface's TimerVeille handler).
    std::function<void()> standbyCheck;
    // Where the next dates are shown: the kind of plan, the base and the date (none: not
    // planned).
    std::function<void(PlanKind kind, int base, const std::optional<LocalTime>& due)> showNextDate;
    // The observer of a scheduled backup of `base` (none: nobody watches).
    std::function<ProgressObserver&(int base)> backupProgress;
    // Told of each planned backup's outcome.
    std::function<void(int base, const BackupOutcome& outcome)> afterBackup;

  private:
    void Arm(ScheduleState& state, const OperationPlan& plan, PlanKind kind, int base);
    void RunPlannedBackup(int base);
    void RunExport(int base);
    void RunImport(int base);

    std::array<BasePlan, kMaxBases> plans_{};
    std::array<ScheduleState, kMaxBases> backup_{}, export_{}, import_{};
    std::array<std::optional<LocalTime>, kMaxBases> announced_{};
    std::array<LocalTime, kMaxBases> announcedAt_{};
};

// The names of the natures the Export and Import tabs offer.
extern const std::array<const char*, 3> kExportNatures;
extern const std::array<const char*, 3> kImportNatures;

}  // namespace toverin
