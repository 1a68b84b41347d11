#include "operations/Backup.h"

#include <sys/stat.h>

#include <filesystem>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "net/Players.h"
#include "operations/CopyStep.h"
#include "operations/OperationState.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordView.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using namespace btr;

const BaseConfig& BaseOf(int base) {
    return Site().bases.at(static_cast<size_t>(base));
}

void Marker(int base, const char* key, const char* value) {
    EcritureIni(BaseOf(base).BkPrgIni(), "Data_Backup", key, value);
}

// The attribute words of a file that exists but could not be made.
std::string AttributeWords(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return "Normal ";
    std::string words;
    if (!(st.st_mode & S_IWUSR)) words += "Read Only ";
    if (FileNameOf(path).rfind('.', 0) == 0) words += "Hidden ";
    if (S_ISDIR(st.st_mode)) words += "Directory ";
    if (S_ISLNK(st.st_mode)) words += "Alias ";
    if (words.empty()) words = "Normal ";
    return words;
}

// Waits while the base is paused, telling the suite that the backup is not active meanwhile.
void PauseWait(int base) {
    if (!Operations().paused[base]) return;
    Marker(base, "Start", "0FF");
    Marker(base, "Pause", "ON");
    while (Operations().paused[base]) {
        DoEvents();
        AppClock().Sleep(Milliseconds(20));
    }
    Marker(base, "Pause", "0FF");
    Marker(base, "Start", "ON");
}

// A stop request is confirmed by the user; No goes on.
bool StopConfirmed(int base) {
    if (!Operations().stopRequested[base]) return false;
    if (AffMsg("Voulez-vous stopper le backup des données ?", MsgButtons::YesNo,
               MsgIcon::Question) == MsgAnswer::Yes)
        return true;
    Operations().stopRequested[base] = false;
    return false;
}

bool SameFolder(const std::string& a, const std::string& b) {
    if (UpperAscii(a) == UpperAscii(b)) return true;
    std::string left =
        StartsWith(a, "\\\\") || StartsWith(a, "//") ? ChangeUNCFolder2LocalFolder(a) : a;
    if (UpperAscii(NormaliseFolder(left)) == UpperAscii(NormaliseFolder(b))) return true;
    std::error_code ec;
    return fs::exists(left, ec) && fs::exists(b, ec) && fs::equivalent(left, b, ec);
}

}  // namespace

std::string BackupDayFolder(const std::string& root, const std::string& dayName) {
    return NormaliseFolder(NormaliseFolder(NormaliseFolder(root) + "_Backup") + dayName);
}

std::string BackupFileName(const std::string& stationFileName) {
    return ReplaceAllIgnoreCase(stationFileName, ".bt6", ".btr");
}

BackupOutcome BackupData(int base, bool all, OperationView& view) {
    return BackupData(base, all, LoadBackupOptions(base), view);
}

BackupOutcome BackupData(int base, bool all, const BackupOptions& options, OperationView& view) {
    BackupOutcome outcome;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return outcome;
    OperationFlags& flags = Operations();
    if (flags.backupRunning[base]) return outcome;
    flags.backupRunning[base] = true;
    outcome.started = true;
    BusyScope busy;
    const std::string previousCaption = AppCaption();
    const BaseConfig& cfg = BaseOf(base);
    const LocalTime start = AppClock().Now();
    bool errorEnded = false;

    try {
        Marker(base, "Start", "ON");
        std::string caption = OperationCaption(" - Backup en cours de la base ", base);
        view.SetCaption(caption);
        SetAppCaption(caption);
        TraceLogEncadre("Backup: Started", '=');
        TraceLogEncadre(
            std::string("Backup: ") + kOptionBackupCaptions[options.optionBackup ? 1 : 0], '*');
        view.SetText("TexteTimingDebutBkp", base, FormatLongDateTime(start));
        flags.stopRequested[base] = false;
        view.SetEnabled("CommandBkpStop", base, true);
        view.SetEnabled("CommandBkpPause", base, true);

        const int historyDays = HistoryDays(options.historyDaysText);
        const std::string dayName = DayName(start);
        const std::string serverDay = BackupDayFolder(options.serverDataFolder, dayName);
        const std::string localDay = BackupDayFolder(options.localBackupFolder, dayName);
        for (const auto& folder : {serverDay + "Config/", localDay + "Config/", serverDay, localDay,
                                   NormaliseFolder(options.serverDataFolder)})
            VerificationEtCreationRepertoire(folder);

        // The base's settings travel with its data.
        view.SetText("LabelBkpFichier", base, "Paramètres");
        std::error_code ec;
        for (fs::directory_iterator it(cfg.configFolder, ec), end; !ec && it != end;
             it.increment(ec)) {
            if (!it->is_regular_file()) continue;
            std::string name = it->path().filename().string();
            File_Copy(it->path().string(), serverDay + "Config/" + name, true);
            File_Copy(it->path().string(), localDay + "Config/" + name, true);
        }

        // The run's own slots: the files read and the copies written each keep their position.
        SlotBank sources("Backup");
        SlotBank copies("Backup copies");
        const CopyBanks banks{sources, copies};

        // The root that receives the record copy, and the one that gets a copy of the result.
        const bool localFirst = options.optionBackup == 0;
        const std::string& recordDay = localFirst ? localDay : serverDay;
        const std::string& otherDay = localFirst ? serverDay : localDay;
        bool stopped = false;

        for (int f = 0; f < kCatalogueSize && !stopped; ++f) {
            if (f == 11 || !options.files[f]) continue;  // user rights stay on their machine
            const CatalogueEntry& entry = CatalogueEntryFor(f);
            if (!entry.Exists()) continue;
            view.SetProgress("ProgressBarBkpFichiers", base, f + 1, kCatalogueSize);
            view.SetProgress("ProgressBarBkpStations", base, 0, cfg.stationCount);

            for (int s = 1; s <= cfg.stationCount && !stopped; ++s) {
                view.SetProgress("ProgressBarBkpStations", base, s, cfg.stationCount);
                std::string label = entry.description + " Station: " + std::to_string(s);
                view.SetText("LabelBkpFichier", base, label);
                if (PlayersConfigured()) SendToPlayers(label);
                ServeEvents();

                const std::string name = StationFileName(f, s);
                if (Trim(name).empty()) continue;
                if (s > 1 && IsCommonFileName(name)) break;  // common to the base: once

                const std::string source = ExistingCase(cfg.dataFolder + name);
                TraceLog("Backup: Source file: " + source);
                if (!FileExists(source)) {
                    TraceLog("Backup: Err: Source file not found: " + source);
                    ++outcome.failedFiles;
                    continue;
                }
                const std::string serverTarget = serverDay + BackupFileName(name);
                const std::string localTarget = localDay + BackupFileName(name);
                TraceLog("Backup: Target server file: " + serverTarget);
                TraceLog("Backup: Target local file: " + localTarget);
                const std::string& target = localFirst ? localTarget : serverTarget;
                const std::string& other = localFirst ? serverTarget : localTarget;

                if (PathExists(target)) {
                    File_Delete(target);
                    if (PathExists(target)) {
                        AffMsg("Impossible de détruire: " + target, MsgButtons::Ok,
                               MsgIcon::Critical);
                        TraceLog("Err: Unable to delete " + target);
                        ++outcome.failedFiles;
                        continue;
                    }
                    TraceLog("Backup: Server file deleted: " + target);
                }

                int16_t created = CreationFichierBTrieve(target, f);
                if (created != kSuccess) {
                    TraceLog("Err: " + std::to_string(created) + " Create File: " + target);
                    AffMsg("Err: " + std::to_string(created) + " Creation du fichier: " + target,
                           MsgButtons::Ok, MsgIcon::Critical);
                    if (PathExists(target))
                        TraceLog("Err: File attributes: " + AttributeWords(target));
                    else
                        TraceLog("Err: File not found: " + target);
                    if (created == kFileInUseCreate)
                        AffMsg(
                            "Fichier '" + target +
                                "' en cours d'utilisation.\r\n\r\nVeuillez arrêter "
                                "Kavella, voire les postes.\r\n\r\nPuis recommencez l'opération.",
                            MsgButtons::Ok, MsgIcon::Critical);
                    ++outcome.failedFiles;
                    continue;
                }
                TraceLog("Backup: File created: " + target);

                if (ScopedQuiet quiet(sources);
                    sources.OuvertureFichierBTrieve(base, f, source, entry.recordLength, s,
                                                    kOpenReadOnly) != kSuccess) {
                    TraceLog("Err: Unable to open source file: " + source);
                    ++outcome.failedFiles;
                    continue;
                }
                TraceLog("Backup: Open source file: " + source);
                const long long expected = std::max(0LL, sources.RecordCount(base, f, s));
                if (ScopedQuiet quiet(copies);
                    copies.OuvertureFichierBTrieve(base, f, target, entry.recordLength, s,
                                                   kOpenAccelerated) != kSuccess) {
                    TraceLog("Err: Unable to open target file: " + target);
                    sources.FermetureFichierBTrieve(base, f, s);
                    ++outcome.failedFiles;
                    continue;
                }
                TraceLog(localFirst ? "Backup: Open target local file: " + target
                                    : "Backup: Open target server file: " + target);
                CopyStepOptions step;
                step.sourcePath = source;
                step.targetPath = target;
                step.keyControl = "LabelBkpKey";
                step.recordsControl = "ProgressBarBkpRecords";
                step.expected = expected;
                step.keyDialog = options.keyOnError;
                if (IsHistoryFile(f)) {
                    // History files are read newest first, on the key that leads with the date,
                    // so that a limited backup keeps the latest days.
                    const size_t length = static_cast<size_t>(HistoryKeyLength(f));
                    step.keyNumber = HistoryKeyNumber(f);
                    step.descending = true;
                    step.upper = std::string(length, '\xFF');
                    step.lower = all ? std::string(length, '\0')
                                     : DateKey(AddDays(start, -historyDays)) +
                                           std::string(static_cast<size_t>(HistoryFiller(f)), '\0');
                } else {
                    step.keyNumber = 0;
                    step.lower = std::string(100, '\0');
                    step.upper = std::string(100, '\xFF');
                }
                RecordCopyJob job = CopyJobFor(banks, base, f, s, step, view);
                if (f == 29) {
                    // The suite's sites stay on their machine.
                    job.rewrite = [](std::string& record) {
                        return RecordView(29, record).Text("Header") == "SITES"
                                   ? RecordAction::Skip
                                   : RecordAction::Copy;
                    };
                }
                job.afterRecord = [base] {
                    PauseWait(base);
                    return !StopConfirmed(base);
                };
                RecordCopyResult copy = CopyRecords(job);
                long long copied = copy.copied;
                stopped = copy.stopped;
                if (f == 7 && !all && !stopped) {
                    // Undated spot dates are kept in 1900: always keep them.
                    job.lower = "1900" + std::string(5, '\0');
                    job.upper = "1900" + std::string(5, '\xFF');
                    RecordCopyResult extra = CopyRecords(job);
                    copied += extra.copied;
                    stopped = extra.stopped;
                    copy.readError = copy.readError || extra.readError;
                    copy.writeError = copy.writeError || extra.writeError;
                }
                outcome.records += copied;
                TraceLog("Backup: Ended: Records: " + std::to_string(copied) + " / " +
                         std::to_string(expected));
                // A copy that did not fully reach the disk is not spread to the other root.
                if (!CloseCopy(job, copy, target)) {
                    ++outcome.failedFiles;
                    continue;
                }
                if (copy.readError) ++outcome.failedFiles;

                // The finished copy goes whole to the other root.
                const std::string& fromFolder =
                    localFirst ? options.localBackupFolder : options.serverDataFolder;
                const std::string& toFolder =
                    localFirst ? options.serverDataFolder : options.localBackupFolder;
                if (SameFolder(toFolder, fromFolder)) {
                    TraceLog("Err: Local Backup unable: Source Folder = Target Folder: " +
                             recordDay);
                    AffMsg("Err: Copie locale impossible: Source = Cible: " + recordDay,
                           MsgButtons::Ok, MsgIcon::Critical);
                } else if (!FileExists(target)) {
                    AffMsg("Err: Copie locale impossible: Fichier non trouvé: " + target,
                           MsgButtons::Ok, MsgIcon::Critical);
                    TraceLog(std::string(localFirst ? "Err: Server Backup unable: No file found: "
                                                    : "Err: Local Backup unable: No file found: ") +
                             target);
                    ++outcome.failedFiles;
                } else if (!File_Copy(target, other, true)) {
                    ++outcome.failedFiles;
                }
                (void)otherDay;
            }
        }
        outcome.stopped = stopped;
    } catch (const std::exception& e) {
        GestionDesErreurs(e, "BackupData:Lib_Backup");
        errorEnded = true;
    }

    const LocalTime end = AppClock().Now();
    const long long seconds = SecondsBetween(start, end);
    view.SetText("TexteTimingFinBkp", base, FormatLongDateTime(end));
    view.SetText("TexteDureeBkp", base, FormatDuration(seconds));
    view.SetText("LabelBkpFichier", base, "");
    view.SetText("LabelBkpKey", base, "");
    for (const char* bar :
         {"ProgressBarBkpFichiers", "ProgressBarBkpStations", "ProgressBarBkpRecords"})
        view.SetProgress(bar, base, 0, 1);

    if (!errorEnded && !outcome.stopped) {
        outcome.finished = true;
        const std::string dayName = DayName(end);
        EcritureIni(cfg.BkSysIni(), "Sauvegarde", "Date", FormatDateTime(end));
        EcritureIni(cfg.BkSysIni(), "Sauvegarde", dayName, FormatDateTime(end));
        view.SetText("TexteDatePrevBkp", base, FormatLongDateTime(end));
        view.SetText("TexteRestaurationDate", base * 7 + WeekdayMondayFirst(end) - 1,
                     FormatLongDateTime(end));
        if (AfterBackupHook()) AfterBackupHook()(base);
    }
    TraceLogEncadre("Backup: Ended. Duration: " + FormatDuration(seconds), '=');
    view.SetEnabled("CommandBkpStop", base, false);
    view.SetEnabled("CommandBkpPause", base, false);
    SetAppCaption(previousCaption);
    view.SetCaption(previousCaption);
    Marker(base, "Start", "0FF");
    flags.backupRunning[base] = false;
    if (PlayersConfigured()) SendToPlayers("<Ended>");
    TraceLogForce();
    return outcome;
}

void CommandBkpNow_Click(int base, OperationView& view) {
    MsgAnswer answer = AffMsg(
        "Voulez-vous sauvegarder toutes les données (sans tenir compte du nombre de jours "
        "d'historique à sauvegarder) ?",
        MsgButtons::YesNo, MsgIcon::Critical, AppCaption());
    BackupData(base, answer == MsgAnswer::Yes, view);
}

void CommandBkpPause_Click(int base, OperationView& view) {
    if (base < 0 || base >= kMaxBases) return;
    Operations().paused[base] = !Operations().paused[base];
    view.SetText("CommandBkpPause", base, Operations().paused[base] ? "Resume" : "Pause");
}

void CommandBkpStop_Click(int base) {
    if (base < 0 || base >= kMaxBases) {
        GestionDesErreurs(9, "Subscript out of range", "CommandBkpStop_Click:Frm_Main");
        return;
    }
    Operations().stopRequested[base] = true;
}

}  // namespace toverin
