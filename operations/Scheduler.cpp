#include "operations/Scheduler.h"

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "operations/Backup.h"
#include "operations/OperationState.h"
#include "store/Pervasive.h"

namespace toverin {

const std::array<const char*, 3> kExportNatures = {"Export vers les stations", "Export (nature 1)",
                                                   "Export NinSight"};
const std::array<const char*, 3> kImportNatures = {"Import des stations", "Import Maya (RMB)",
                                                   "Import NinSight"};

std::string NatureName(const std::array<const char*, 3>& names, int nature) {
    if (nature >= 0 && nature < static_cast<int>(names.size())) return names[nature];
    return "Nature " + std::to_string(nature);
}

std::string NatureUnavailableText(const std::string& natureName) {
    return "Non disponible dans ce programme: " + natureName;
}

Scheduler::~Scheduler() {
    AfterBackupHook() = nullptr;
}

void Scheduler::Load() {
    // A finished backup shows the next one at once.
    AfterBackupHook() = [this](int base) { DetermineDateProchainBackup(base); };
    for (int b = 0; b < Site().baseCount; ++b) {
        plans_[b] = LoadPlan(b);
        DetermineDateProchainBackup(b);
        DetermineDateProchainExport(b);
        DetermineDateProchainImport(b);
    }
}

void Scheduler::Save(int base) {
    SaveSettings(base, plans_[base]);
    DetermineDateProchainBackup(base);
    DetermineDateProchainExport(base);
    DetermineDateProchainImport(base);
}

void Scheduler::Arm(ScheduleState& state, const OperationPlan& plan, const char* control, int base,
                    const std::array<NatureRunner, 3>* runners,
                    const std::array<const char*, 3>* names) {
    std::optional<LocalTime> due = NextDueDate(plan, AppClock().Now());
    const int nature = plan.nature;
    if (due && runners &&
        (nature < 0 || nature >= static_cast<int>(runners->size()) || !(*runners)[nature])) {
        // A date that would never run would mislead: the tab says why nothing will happen.
        state.armed = false;
        view_.SetText(control, base, NatureUnavailableText(NatureName(*names, nature)));
        return;
    }
    state.armed = due.has_value();
    if (due) state.next = *due;
    view_.SetText(control, base, NextDateText(due));
}

void Scheduler::DetermineDateProchainBackup(int base) {
    Arm(backup_[base], plans_[base].backup, "TexteDateProchainBackup", base);
}

void Scheduler::DetermineDateProchainExport(int base) {
    Arm(export_[base], plans_[base].exportPlan, "TexteDateProchainExport", base, &exportRunners,
        &kExportNatures);
}

void Scheduler::DetermineDateProchainImport(int base) {
    Arm(import_[base], plans_[base].importPlan, "TexteDateProchainImport", base, &importRunners,
        &kImportNatures);
    if (import_[base].armed) TraceLog("New import date: " + FormatDateTime(import_[base].next));
}

void Scheduler::TimerMain_Timer() {
    Guarded("TimerMain_Timer:Frm_Main", 0, [this] {
        if (Operations().busy) return 0;
        const int bases = std::min<int>(Site().baseCount, static_cast<int>(Site().bases.size()));
        for (int b = 0; b < bases; ++b) {
            if (!backup_[b].armed) continue;
            LocalTime now = AppClock().Now();
            const std::string marker = Site().bases[b].BkPrgIni();
            // Tell the suite's other programs that a backup is coming, again every 20 minutes.
            if (announced_[b] != backup_[b].next ||
                std::llabs(SecondsBetween(announcedAt_[b], now)) > 1200) {
                EcritureIni(marker, "Data_Backup", "Actif", "ON");
                EcritureIni(marker, "Data_Backup", "Date", FormatDateTime(backup_[b].next));
                EcritureIni(marker, "Data_Backup", "Ecriture_Date", FormatDateTime(now));
                announced_[b] = backup_[b].next;
                announcedAt_[b] = now;
            }
            if (now >= backup_[b].next) {
                backup_[b].armed = false;
                EcritureIni(marker, "Data_Backup", "Actif", "0FF");
                Operations().stopRequested[b] = false;
                TraceLogEncadre("Schedule: Start Backup", '=');
                AutomaticMode() = true;
                BackupOutcome outcome = BackupData(b, plans_[b].backupAll, view_);
                AutomaticMode() = false;
                lastBackup_[b] = {true, AppClock().Now(),
                                  !outcome.finished || outcome.failedFiles > 0};
                // A finished backup arms its next date itself; a stopped or failed one waits for
                // its next planned date all the same.
                if (!backup_[b].armed) DetermineDateProchainBackup(b);
            }
        }
        if (Operations().busy) return 0;
        for (int b = 0; b < bases; ++b) {
            if (export_[b].armed && AppClock().Now() >= export_[b].next) RunExport(b);
        }
        if (Operations().busy) return 0;
        for (int b = 0; b < bases; ++b) {
            if (import_[b].armed && AppClock().Now() >= import_[b].next) RunImport(b);
        }
        if (afterTick) afterTick();
        if (standbyCheck) standbyCheck();
        return 0;
    });
}

void Scheduler::RunExport(int base) {
    export_[base].armed = false;
    TraceLogEncadre("Schedule: Start Export", '=');
    const int nature = plans_[base].exportPlan.nature;
    // Armed only with a runner for its nature; a plan changed since is said plainly.
    if (nature >= 0 && nature < static_cast<int>(exportRunners.size()) && exportRunners[nature]) {
        exportRunners[nature](base);
    } else {
        TraceLog("Schedule: Export: " + NatureName(kExportNatures, nature) +
                 ": not available in this program; nothing was exported");
    }
    DetermineDateProchainExport(base);
}

void Scheduler::RunImport(int base) {
    import_[base].armed = false;
    TraceLogEncadre("Schedule: Start Import", '=');
    const int nature = plans_[base].importPlan.nature;
    if (nature == 1 || nature == 2) {
        const std::string& s = plans_[base].stationsImport;
        bool source = false, target = false;
        for (size_t i = 0; i + 1 < s.size() && i < 16; i += 2) {
            bool set = s.compare(i, 2, "00") != 0;
            if (i < 8) {
                source = source || set;
            } else {
                target = target || set;
            }
        }
        if (!source || !target) {
            AffMsg(kImportStationsMissing, MsgButtons::Ok, MsgIcon::Exclamation);
            DetermineDateProchainImport(base);
            return;
        }
        TraceLogEncadre(nature == 1 ? "Import Maya: Started" : "Import NinSight: Started", '=');
    }
    if (nature >= 0 && nature < static_cast<int>(importRunners.size()) && importRunners[nature]) {
        importRunners[nature](base);
    } else {
        TraceLog("Schedule: Import: " + NatureName(kImportNatures, nature) +
                 ": not available in this program; nothing was imported");
    }
    DetermineDateProchainImport(base);
}

}  // namespace toverin
