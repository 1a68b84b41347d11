#include "operations/Restore.h"

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Log.h"
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

const char* kInUseMessage =
    "' en cours d'utilisation.\r\n\r\nVeuillez arrêter Kavella, voire les postes.\r\n\r\n"
    "Puis recommencez l'opération.";

void ClearRestoreProgress(OperationView& view, int base) {
    view.SetText("LabelRestaurationFichier", base, "");
    view.SetText("LabelRestaurationKey", base, "");
    for (const char* bar : {"ProgressBarRestaurationFichiers", "ProgressBarRestaurationStations",
                            "ProgressBarRestaurationRecords"})
        view.SetProgress(bar, base, 0, 1);
}

}  // namespace

RestoreOutcome RestoreData(int base, const RestoreRequest& request, OperationView& view) {
    return RestoreData(base, request, LoadBackupOptions(base), view);
}

RestoreOutcome RestoreData(int base, const RestoreRequest& request, const BackupOptions& options,
                           OperationView& view) {
    RestoreOutcome outcome;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return outcome;
    const BaseConfig& cfg = Site().bases[base];
    bool any = false;
    for (int i = 0; i < cfg.stationCount; ++i) any = any || request.stations[i];
    if (!any) {
        AffMsg("Vous devez sélectionner au moins une station pour restaurer", MsgButtons::Ok,
               MsgIcon::Critical);
        outcome.refused = true;
        return outcome;
    }
    BusyScope busy;
    const std::string previousCaption = AppCaption();
    std::string caption = OperationCaption(" - Restauration en cours de la base ", base);
    SetAppCaption(caption);
    view.SetCaption(caption);
    TraceLogEncadre("Restore: Started", '=');
    const LocalTime start = AppClock().Now();
    view.SetText("TexteTimingDebutRestauration", base, FormatLongDateTime(start));

    // Always from the server root: the local copies are the machine's own safety net.
    const std::string dataFolder = NormaliseFolder(options.serverDataFolder);
    const std::string backupFolder = BackupDayFolder(dataFolder, request.dayName);

    Guarded("RestoreData:Lib_Restore", 0, [&] {
        // The run's own slots: the backups read and the data files written.
        SlotBank sources("Restore");
        SlotBank copies("Restore copies");
        const CopyBanks banks{sources, copies};
        for (int f = 0; f < kCatalogueSize; ++f) {
            if (!request.files[f] || !CatalogueEntryFor(f).Exists()) continue;
            const CatalogueEntry& entry = CatalogueEntryFor(f);
            view.SetProgress("ProgressBarRestaurationFichiers", base, f + 1, kCatalogueSize);
            for (int i = 0; i < cfg.stationCount; ++i) {
                const int s = i + 1;
                if (!request.stations[i]) {
                    TraceLog("Station: Not selected");
                    continue;
                }
                TraceLog("Station: Selected");
                view.SetProgress("ProgressBarRestaurationStations", base, s, cfg.stationCount);
                view.SetText("LabelRestaurationFichier", base,
                             entry.description + " Station: " + std::to_string(s));
                ServeEvents();
                const std::string name = StationFileName(f, s);
                if (Trim(name).empty()) {
                    TraceLog("Err: File name: Empty");
                    continue;
                }
                // A file common to the base is restored with the first selected station only.
                if (IsCommonFileName(name)) {
                    bool first = true;
                    for (int j = 0; j < i; ++j) first = first && !request.stations[j];
                    if (!first) continue;
                }
                const std::string backupFile = ExistingCase(backupFolder + BackupFileName(name));
                const std::string dataFile = ExistingCase(dataFolder + name);
                if (!FileExists(backupFile)) {
                    TraceLog("Err: File not found: " + backupFile);
                    continue;
                }
                TraceLog("File found: " + backupFile);
                if (PathExists(dataFile)) {
                    File_Delete(dataFile);
                    if (PathExists(dataFile)) {
                        TraceLog("Err: Unable to delete " + dataFile);
                        ++outcome.failedFiles;
                        continue;
                    }
                }
                // Ticked "Création d'une structure cible vide" copies the backup file whole; the
                // unticked box rebuilds an empty structure and copies the records. Kept so.
                if (request.createEmptyStructure && File_Copy(backupFile, dataFile, true)) {
                    AffMsg("Fichier copié: '" + backupFile + "'\r\n\r\nVers:\r\n\r\n" + dataFile,
                           MsgButtons::Ok, MsgIcon::Information);
                    TraceLog("Copy file: " + backupFile + " to " + dataFile);
                    ++outcome.restoredFiles;
                    continue;
                }
                int16_t created = CreationFichierBTrieve(dataFile, f);
                if (created != kSuccess) {
                    TraceLog("Err: " + std::to_string(created) + " Create File: " + dataFile);
                    if (created == kFileInUseCreate)
                        AffMsg("Fichier '" + dataFile + kInUseMessage, MsgButtons::Ok,
                               MsgIcon::Critical);
                    ++outcome.failedFiles;
                    continue;
                }
                if (ScopedQuiet quiet(sources);
                    sources.OuvertureFichierBTrieve(base, f, backupFile, entry.recordLength, s,
                                                    kOpenReadOnly) != kSuccess) {
                    TraceLog("Err: Can't open the file: " + backupFile);
                    ++outcome.failedFiles;
                    continue;
                }
                if (ScopedQuiet quiet(copies);
                    copies.OuvertureFichierBTrieve(base, f, dataFile, entry.recordLength, s,
                                                   kOpenAccelerated) != kSuccess) {
                    TraceLog("Err: Can't open the file: " + dataFile);
                    sources.FermetureFichierBTrieve(base, f, s);
                    ++outcome.failedFiles;
                    continue;
                }
                TraceLog("Restore started. File:       " + dataFile);
                CopyStepOptions step;
                step.sourcePath = backupFile;
                step.targetPath = dataFile;
                step.keyControl = "LabelRestaurationKey";
                step.recordsControl = "ProgressBarRestaurationRecords";
                step.expected = std::max(0LL, sources.RecordCount(base, f, s));
                step.lower = std::string(100, '\0');
                step.upper = std::string(100, '\xFF');
                step.messages = CopyMessages::Restore;
                const long long expected = step.expected;
                RecordCopyJob job = CopyJobFor(banks, base, f, s, step, view);
                RecordCopyResult copy = CopyRecords(job);
                TraceLog("Restore ended.   Nb records: " + std::to_string(copy.copied) + " / " +
                         std::to_string(expected));
                if (!CloseCopy(job, copy, dataFile)) {
                    ++outcome.failedFiles;
                    continue;
                }
                if (copy.readError) ++outcome.failedFiles;
                ++outcome.restoredFiles;
            }
        }
        return 0;
    });

    const LocalTime end = AppClock().Now();
    const long long seconds = SecondsBetween(start, end);
    view.SetText("TexteTimingFinRestauration", base, FormatLongDateTime(end));
    view.SetText("TexteDureeRestauration", base, FormatDuration(seconds));
    ClearRestoreProgress(view, base);
    TraceLogEncadre("Restore: Ended. Duration: " + FormatDuration(seconds), '=');
    SetAppCaption(previousCaption);
    view.SetCaption(previousCaption);
    if (outcome.restoredFiles > 0)
        AffMsg("Restauration terminée", MsgButtons::Ok, MsgIcon::Information);
    else
        AffMsg("Aucune restauration à faire", MsgButtons::Ok, MsgIcon::Critical);
    TraceLogForce();
    return outcome;
}

CreationOutcome CreateData(int base, const CreationRequest& request, OperationView& view) {
    CreationOutcome outcome;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return outcome;
    const BaseConfig& cfg = Site().bases[base];
    bool any = false;
    for (int i = 0; i < cfg.stationCount; ++i) any = any || request.stations[i];
    if (!any) {
        AffMsg("Vous devez sélectionner au moins une station", MsgButtons::Ok, MsgIcon::Critical);
        outcome.refused = true;
        return outcome;
    }
    BusyScope busy;
    const std::string previousCaption = AppCaption();
    std::string caption = OperationCaption(" - Creation en cours de la base ", base);
    SetAppCaption(caption);
    view.SetCaption(caption);
    const LocalTime start = AppClock().Now();
    view.SetText("TexteTimingDebutRestauration", base,
                 FormatLongDate(start) + " " + FormatTime(start));

    Guarded("CreateData:Lib_Creation", 0, [&] {
        for (int f = 0; f < kCatalogueSize; ++f) {
            if (!request.files[f]) continue;
            const std::string label = FileListLine(f).size() > 3 ? FileListLine(f).substr(3) : "";
            for (int i = 0; i < cfg.stationCount; ++i) {
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
                if (status != btr::kSuccess) {
                    TraceLog("Err: " + std::to_string(status) + " Create File: " + path);
                    if (status == btr::kFileInUseCreate)
                        AffMsg(
                            "Fichier '" + path +
                                "' en cours d'utilisation.\r\n\r\nVeuillez arrêter Kavella, voire "
                                "éteindre les postes.\r\n\r\nPuis recommencez l'opération.",
                            MsgButtons::Ok, MsgIcon::Critical);
                    ++outcome.failed;
                    continue;
                }
                TraceLogEncadre(
                    "Create: File: " + path + " (Prev Nb records: " + std::to_string(count) + ")",
                    '=');
                AffMsg("Le fichier '" + path + "' a été créé à vide\r\n\r\n" + label,
                       MsgButtons::Ok, MsgIcon::Information);
                ++outcome.created;
            }
        }
        return 0;
    });

    const LocalTime end = AppClock().Now();
    view.SetText("TexteTimingFinRestauration", base, FormatLongDate(end) + " " + FormatTime(end));
    view.SetText("TexteDureeRestauration", base, FormatDuration(SecondsBetween(start, end)));
    SetAppCaption(previousCaption);
    view.SetCaption(previousCaption);
    TraceLogForce();
    return outcome;
}

}  // namespace toverin
