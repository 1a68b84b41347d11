#include "operations/Restore.h"

#include <algorithm>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "operations/Backup.h"
#include "operations/CopyStep.h"
#include "operations/OperationState.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"

namespace toverin {
namespace {

using namespace btr;

bool AnyStation(const std::array<bool, kMaxStations>& stations, int count) {
    for (int i = 0; i < count && i < kMaxStations; ++i)
        if (stations[i]) return true;
    return false;
}

// A run that restored nothing of what was asked did not end well, whatever the reason.
progress::Outcome RestoreResult(const RestoreOutcome& outcome) {
    if (outcome.failed) return progress::Outcome::Failed;
    if (outcome.stopped) return progress::Outcome::Stopped;
    const bool left = outcome.failedFiles > 0 || !outcome.missingNames.empty();
    if (left && outcome.restoredFiles == 0) return progress::Outcome::Failed;
    if (left) return progress::Outcome::Incomplete;
    return progress::Outcome::Finished;
}

std::string Names(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

// What the tab says beside the result: the files left as they were, and how many the day's
// backup does not hold (the closing message names them).
std::string ResultSummary(const RestoreOutcome& outcome, const std::string& dayName) {
    std::string summary;
    if (outcome.failedFiles > 0) summary = "laissés tels quels : " + Names(outcome.failedNames);
    if (!outcome.missingNames.empty())
        summary += (summary.empty() ? "" : " ; ") + std::to_string(outcome.missingNames.size()) +
                   " fichier(s) absent(s) du backup du " + dayName;
    return summary;
}

// One run of the restore of a base.
class RestoreRun {
  public:
    RestoreRun(int base, const RestoreRequest& request, const BackupOptions& options,
               ProgressObserver& progress)
        : base_(base),
          request_(request),
          progress_(progress),
          cfg_(Site().bases[static_cast<size_t>(base)]),
          dataFolder_(NormaliseFolder(options.serverDataFolder)),
          // The server root, as the window always reads it; the local root when asked.
          backupFolder_(BackupDayFolder(
              request.fromLocalRoot ? options.localBackupFolder : options.serverDataFolder,
              request.dayName)) {}

    void Files();
    // One station's file; false when the run must stop.
    bool StationFile(int f, int s);
    RestoreOutcome outcome;

  private:
    const int base_;
    const RestoreRequest& request_;
    ProgressObserver& progress_;
    const BaseConfig& cfg_;
    const std::string dataFolder_;
    const std::string backupFolder_;
    // The run's own slots: the backups read and the data files written.
    SlotBank sources_{"Restore"};
    SlotBank copies_{"Restore copies"};
};

void RestoreRun::Files() {
    for (int f = 0; f < kCatalogueSize; ++f) {
        if (!request_.files[f] || !CatalogueEntryFor(f).Exists()) continue;
        progress_.OnProgress(progress::FileReached{f + 1, kCatalogueSize, ""});
        for (int i = 0; i < cfg_.stationCount; ++i) {
            if (!request_.stations[i]) {
                TraceLog("Station: Not selected");
                continue;
            }
            TraceLog("Station: Selected");
            if (!StationFile(f, i + 1)) return;
        }
    }
}

bool RestoreRun::StationFile(int f, int s) {
    const CatalogueEntry& entry = CatalogueEntryFor(f);
    progress_.OnProgress(progress::StationReached{s, cfg_.stationCount});
    progress_.OnProgress(progress::FileReached{
        f + 1, kCatalogueSize, entry.description + " Station: " + std::to_string(s)});
    ServeEvents();
    const std::string name = StationFileName(f, s);
    if (Trim(name).empty()) {
        TraceLog("Err: File name: Empty");
        return true;
    }
    // A file common to the base goes with station 1, as in the backup: restoring other stations
    // alone leaves it alone.
    if (IsCommonFileName(name) && s != 1) return true;
    const std::string backupFile = ExistingCase(backupFolder_ + BackupFileName(name));
    if (!FileExists(backupFile)) {
        TraceLog("Err: File not found: " + backupFile);
        outcome.missingNames.push_back(name);
        return true;
    }
    TraceLog("File found: " + backupFile);

    StationFileJob job;
    job.base = base_;
    job.fileNumber = f;
    job.station = s;
    job.source = backupFile;
    job.target = ExistingCase(dataFolder_ + name);
    job.targetMode = kOpenNormal;  // the data file, shared with the stations
    job.messages = CopyMessages::Restore;
    job.wholeFile = request_.createEmptyStructure;
    job.ranges.push_back({std::string(100, '\0'), std::string(100, '\xFF')});
    job.afterRecord = [] { return !ShuttingDown(); };
    const StationFileResult result = CopyStationFile({sources_, copies_}, job, progress_);
    if (result.status == StepStatus::Done) {
        ++outcome.restoredFiles;
        return true;
    }
    if (result.status == StepStatus::Stopped) {
        outcome.stopped = true;
        return false;
    }
    ++outcome.failedFiles;
    outcome.failedNames.push_back(name);
    if (result.folderError == 0) return true;
    // The data folder takes no writes: every later file would fail there too.
    outcome.failed = true;
    TraceLog("Restore: Err: " + result.folder + ": " + SystemReason(result.folderError) +
             ": the restore stops here");
    AffMsg(GestErr_Fra(OwnError::CannotWrite, result.folder) + " (" +
               SystemReasonFr(result.folderError) +
               ").\r\n\r\nLa restauration est arrêtée : les fichiers en place n'ont pas été "
               "modifiés.",
           MsgButtons::Ok, MsgIcon::Critical);
    return false;
}

}  // namespace

RestoreOutcome RestoreData(int base, const RestoreRequest& request, ProgressObserver& progress) {
    return RestoreData(base, request, LoadBackupOptions(base), progress);
}

RestoreOutcome RestoreData(int base, const RestoreRequest& request, const BackupOptions& options,
                           ProgressObserver& progress) {
    RestoreOutcome refused;
    refused.refused = true;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return refused;
    const BaseConfig& cfg = Site().bases[base];
    LongRun run("Restauration de la base " + cfg.label);
    if (!run.ok()) {
        AffMsg(run.Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        return refused;
    }
    if (!AnyStation(request.stations, cfg.stationCount)) {
        AffMsg("Vous devez sélectionner au moins une station pour restaurer", MsgButtons::Ok,
               MsgIcon::Critical);
        return refused;
    }
    RestoreRun restore(base, request, options, progress);
    const LocalTime start = AppClock().Now();
    progress::Ended ended;
    {
        CaptionScope caption(OperationCaption(" - Restauration en cours de la base ", base));
        TraceLogEncadre("Restore: Started", '=');
        progress.OnProgress(progress::Started{start, AppCaption()});
        Guarded("RestoreData:Lib_Restore", 0, [&] {
            restore.Files();
            return 0;
        });
        const LocalTime end = AppClock().Now();
        const long long seconds = SecondsBetween(start, end);
        const RestoreOutcome& outcome = restore.outcome;
        TraceLog("Restore: Summary: " + std::to_string(outcome.restoredFiles) +
                 " files restored, " + std::to_string(outcome.failedFiles) + " failed" +
                 (outcome.failedNames.empty() ? "" : " (" + Names(outcome.failedNames) + ")") +
                 ", " + std::to_string(outcome.missingNames.size()) + " not in the backup");
        TraceLogEncadre("Restore: Ended. Duration: " + FormatDuration(seconds), '=');
        ended = {end, seconds, RestoreResult(outcome), ResultSummary(outcome, request.dayName)};
    }
    progress.OnProgress(ended);
    const RestoreOutcome& outcome = restore.outcome;
    if (!outcome.failed && !outcome.stopped) {
        // What could not be restored is said with the end of the run: the live files stay.
        const std::string failures = outcome.failedFiles > 0
                                         ? "\r\n\r\nFichiers non restaurés, laissés tels quels : " +
                                               Names(outcome.failedNames)
                                         : "";
        const std::string missing = outcome.missingNames.empty()
                                        ? ""
                                        : "\r\n\r\nFichiers absents du backup du " +
                                              request.dayName +
                                              ", non restaurés : " + Names(outcome.missingNames);
        if (outcome.restoredFiles > 0)
            AffMsg("Restauration terminée" + failures + missing, MsgButtons::Ok,
                   MsgIcon::Information);
        else
            AffMsg("Aucune restauration à faire" + failures, MsgButtons::Ok, MsgIcon::Critical);
    }
    TraceLogForce();
    return outcome;
}

CreationOutcome CreateData(int base, const CreationRequest& request, ProgressObserver& progress) {
    CreationOutcome outcome;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return outcome;
    const BaseConfig& cfg = Site().bases[base];
    LongRun run("Création de fichiers de la base " + cfg.label);
    if (!run.ok()) {
        AffMsg(run.Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        outcome.refused = true;
        return outcome;
    }
    if (!AnyStation(request.stations, cfg.stationCount)) {
        AffMsg("Vous devez sélectionner au moins une station", MsgButtons::Ok, MsgIcon::Critical);
        outcome.refused = true;
        return outcome;
    }
    if (std::none_of(request.files.begin(), request.files.end(), [](bool f) { return f; })) {
        // Otherwise the click would end at once without a word.
        AffMsg("Vous devez sélectionner au moins un fichier", MsgButtons::Ok, MsgIcon::Critical);
        outcome.refused = true;
        return outcome;
    }
    const LocalTime start = AppClock().Now();
    progress::Ended ended;
    {
        CaptionScope caption(OperationCaption(" - Creation en cours de la base ", base));
        progress.OnProgress(progress::Started{start, AppCaption()});
        Guarded("CreateData:Lib_Creation", 0, [&] {
            for (int f = 0; f < kCatalogueSize && !ShuttingDown(); ++f) {
                if (!request.files[f]) continue;
                const std::string label =
                    FileListLine(f).size() > 3 ? FileListLine(f).substr(3) : "";
                for (int i = 0; i < cfg.stationCount && !ShuttingDown(); ++i) {
                    if (!request.stations[i]) continue;
                    ServeEvents();
                    const int s = i + 1;
                    const std::string name = StationFileName(f, s);
                    if (Trim(name).empty() || name == ".bt6") continue;
                    const std::string path = ExistingCase(cfg.dataFolder + name);
                    long long count = 0;
                    if (FileExists(path)) {
                        count = std::max(0LL, RecordCountOfFile(path));
                        if (count > 0 &&
                            AffMsg("Le fichier '" + path + "' contient " + std::to_string(count) +
                                       " enregistrements.\r\n\r\nLibellé: " + label +
                                       "\r\n\r\nVoulez-vous le recréer à vide ?",
                                   MsgButtons::YesNo, MsgIcon::Question) != MsgAnswer::Yes) {
                            ++outcome.kept;
                            continue;
                        }
                    }
                    int16_t status = CreationFichierBTrieve(path, f);
                    if (status != kSuccess) {
                        TraceLog("Err: " + std::to_string(status) + " Create File: " + path);
                        if (status == kFileInUseCreate)
                            AffMsg("Fichier '" + path +
                                       "' en cours d'utilisation.\r\n\r\nVeuillez arrêter "
                                       "Kavella, voire éteindre les postes.\r\n\r\nPuis "
                                       "recommencez l'opération.",
                                   MsgButtons::Ok, MsgIcon::Critical);
                        else
                            outcome.unsaidFailures.push_back(path + " (statut " +
                                                             std::to_string(status) + ")");
                        ++outcome.failed;
                        continue;
                    }
                    TraceLogEncadre("Create: File: " + path +
                                        " (Prev Nb records: " + std::to_string(count) + ")",
                                    '=');
                    AffMsg("Le fichier '" + path + "' a été créé à vide\r\n\r\n" + label,
                           MsgButtons::Ok, MsgIcon::Information);
                    ++outcome.created;
                }
            }
            return 0;
        });
        const LocalTime end = AppClock().Now();
        ended = {end, SecondsBetween(start, end),
                 ShuttingDown()       ? progress::Outcome::Stopped
                 : outcome.failed > 0 ? progress::Outcome::Incomplete
                                      : progress::Outcome::Finished,
                 ""};
    }
    progress.OnProgress(ended);
    if (!outcome.unsaidFailures.empty()) {
        std::string list;
        for (const std::string& line : outcome.unsaidFailures) list += line + "\r\n";
        AffMsg("Les fichiers suivants n'ont pas été créés :\r\n\r\n" + list +
                   "\r\nLe journal du jour donne le détail.",
               MsgButtons::Ok, MsgIcon::Critical);
    }
    TraceLogForce();
    return outcome;
}

}  // namespace toverin
