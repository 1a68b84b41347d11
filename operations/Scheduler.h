// The scheduler behind TimerMain: every tick it looks at each base in turn and starts the
// backups, then the exports, then the imports that are due, on the interface thread, one after
// the other. It also announces the next backup to the suite's other programs in "BK_PRG.ini".
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "app/Clock.h"
#include "app/Site.h"
#include "operations/OperationView.h"
#include "operations/Planning.h"

namespace toverin {

struct ScheduleState {
    bool armed = false;
    LocalTime next{};
};

// What the last backup the scheduler started for a base came to.
struct ScheduledRun {
    bool ran = false;
    LocalTime at{};
    bool failed = false;  // stopped, ended by an error, or some station file not backed up
};

// Runs the export or import of one nature for a base (to its end, on the interface thread).
using NatureRunner = std::function<void(int base)>;

class Scheduler {
  public:
    explicit Scheduler(OperationView& view) : view_(view) {}
    ~Scheduler();
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
    const ScheduledRun& LastBackup(int base) const { return lastBackup_[base]; }

    // The standby check that ends each tick (the interface's TimerVeille handler).
    std::function<void()> standbyCheck;
    // Told at the end of each tick, so that the tray can say how the last run went.
    std::function<void()> afterTick;
    // The natures this program can run, by list index of ComboExportNature and
    // ComboImportNature. A plan whose nature has none is not armed: its tab says so.
    std::array<NatureRunner, 3> exportRunners{};
    std::array<NatureRunner, 3> importRunners{};

  private:
    void Arm(ScheduleState& state, const OperationPlan& plan, const char* control, int base,
             const std::array<NatureRunner, 3>* runners = nullptr,
             const std::array<const char*, 3>* names = nullptr);
    void RunExport(int base);
    void RunImport(int base);

    OperationView& view_;
    std::array<BasePlan, kMaxBases> plans_{};
    std::array<ScheduleState, kMaxBases> backup_{}, export_{}, import_{};
    std::array<std::optional<LocalTime>, kMaxBases> announced_{};
    std::array<LocalTime, kMaxBases> announcedAt_{};
    std::array<ScheduledRun, kMaxBases> lastBackup_{};
};

// The names of the natures the Export and Import tabs offer, by list index.
extern const std::array<const char*, 3> kExportNatures;
extern const std::array<const char*, 3> kImportNatures;
// The name of a nature by its list index; one outside the list is named by its number.
std::string NatureName(const std::array<const char*, 3>& names, int nature);
// What the tab shows for a plan whose nature this program cannot run.
std::string NatureUnavailableText(const std::string& natureName);
// The text said when an import of nature 1 or 2 has no source or no target station.
inline constexpr const char* kImportStationsMissing =
    "Il faut paramétrer au moins une station source et une station cible";

}  // namespace toverin
