#include "operations/Backup.h"

#include <filesystem>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "net/Players.h"
#include "operations/BackupHealth.h"
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

// A marker of the base's "BK_PRG.ini" set for the scope's lifetime and set back at its end.
class MarkerScope {
  public:
    MarkerScope(int base, const char* key, const char* during, const char* after)
        : base_(base), key_(key), after_(after) {
        Marker(base, key, during);
    }
    ~MarkerScope() { Marker(base_, key_, after_); }
    MarkerScope(const MarkerScope&) = delete;
    MarkerScope& operator=(const MarkerScope&) = delete;

  private:
    int base_;
    const char* key_;
    const char* after_;
};

// Waits while the base is paused, telling the suite meanwhile that the backup is not active. A
// stop request, or the program's shutdown, ends the wait: the stop is then asked about.
void PauseWait(int base) {
    OperationFlags& flags = Operations();
    if (!flags.paused[base]) return;
    MarkerScope start(base, "Start", "0FF", "ON");
    MarkerScope pause(base, "Pause", "ON", "0FF");
    while (flags.paused[base] && !flags.stopRequested[base] && !ShuttingDown()) {
        DoEvents();
        AppClock().Sleep(Milliseconds(20));
    }
}

// A stop request is confirmed by the user (nobody there: yes); No goes on. The program's
// shutdown stops without asking.
bool StopConfirmed(int base) {
    OperationFlags& flags = Operations();
    if (ShuttingDown()) {
        TraceLog("Backup: Stopped by the program's shutdown");
        return true;
    }
    if (!flags.stopRequested[base]) return false;
    if (AffMsg("Voulez-vous stopper le backup des données ?", MsgButtons::YesNo, MsgIcon::Question,
               "", MsgAnswer::Yes) == MsgAnswer::Yes)
        return true;
    flags.stopRequested[base] = false;
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

const char* ResultWord(progress::Outcome outcome) {
    switch (outcome) {
        case progress::Outcome::Finished:
            return "Finished";
        case progress::Outcome::Incomplete:
            return "Incomplete";
        case progress::Outcome::Stopped:
            return "Stopped";
        case progress::Outcome::Failed:
            return "Failed";
        case progress::Outcome::Refused:
            return "Refused";
    }
    return "";
}

// The names of the failed files, as many as a line can hold.
std::string NameList(const std::vector<std::string>& names) {
    std::string list;
    for (size_t i = 0; i < names.size(); ++i) {
        if (list.size() > 120) return list + ", ... (" + std::to_string(names.size()) + ")";
        list += (i ? ", " : "") + names[i];
    }
    return list;
}

// One run of the backup of a base; each numbered step of the run is a method.
class BackupRun {
  public:
    BackupRun(int base, bool all, const BackupOptions& options, ProgressObserver& progress)
        : base_(base),
          all_(all),
          options_(options),
          progress_(progress),
          cfg_(BaseOf(base)),
          start_(AppClock().Now()),
          dayName_(DayName(start_)),
          serverDay_(BackupDayFolder(options.serverDataFolder, dayName_)),
          localDay_(BackupDayFolder(options.localBackupFolder, dayName_)),
          localFirst_(options.optionBackup == 0) {}

    BackupOutcome Run();

  private:
    void Begin();
    bool PrepareRoots();
    bool CopySettings();
    void BackupFiles();
    void BackupStationFile(int f, int s);
    StationFileJob JobFor(int f, int s, const std::string& source);
    void Finish();
    void RecordDate(LocalTime end);
    void Summary(progress::Outcome outcome);

    void FileFailed(const std::string& name);
    // An error ends the run: one line, one message (`what` then `more`), and the run is not
    // dated.
    void Fail(const std::string& line, const std::string& what, const std::string& more);
    void FolderFault(const std::string& folder, int error);

    const std::string& RecordDay() const { return localFirst_ ? localDay_ : serverDay_; }

    const int base_;
    const bool all_;
    const BackupOptions& options_;
    ProgressObserver& progress_;
    const BaseConfig& cfg_;
    const LocalTime start_;
    // The folder written is today's when the run starts, also for a run that ends after
    // midnight: that is the day recorded.
    const std::string dayName_;
    const std::string serverDay_;
    const std::string localDay_;
    const bool localFirst_;  // the record copy goes to the local root, the server gets a copy
    // The run's own slots: the files read and the copies written each keep their position.
    SlotBank sources_{"Backup"};
    SlotBank copies_{"Backup copies"};
    BackupOutcome outcome_;
    progress::Ended ended_;
};

BackupOutcome BackupRun::Run() {
    LongRun run("Backup de la base " + cfg_.label);
    if (!run.ok()) {
        AffMsg(run.Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        return outcome_;
    }
    // A backup of this base in another program (toverinctl) holds the base too.
    FileLock lock(BackupLockFile(base_));
    if (!lock.held()) {
        TraceLog("Backup: Err: A backup of base " + cfg_.label + " runs in another program");
        AffMsg("Un backup de la base " + cfg_.label + " est déjà en cours dans un autre programme.",
               MsgButtons::Ok, MsgIcon::Critical);
        return outcome_;
    }
    outcome_.started = true;
    SaveLastRun(base_, {start_, "", ""});
    {
        MarkerScope marker(base_, "Start", "ON", "0FF");
        {
            CaptionScope caption(OperationCaption(" - Backup en cours de la base ", base_));
            try {
                Begin();
                if (PrepareRoots() && CopySettings()) BackupFiles();
            } catch (const std::exception& e) {
                GestionDesErreurs(e, "BackupData:Lib_Backup");
                outcome_.failed = true;
                outcome_.error = e.what();
            }
            Finish();
        }
        // After the caption came back: the page returns to it.
        progress_.OnProgress(ended_);
    }
    if (PlayersConfigured()) SendToPlayers("<Ended>");
    TraceLogForce();
    return outcome_;
}

// Steps 3 and 4: the run is announced.
void BackupRun::Begin() {
    TraceLogEncadre("Backup: Started", '=');
    TraceLogEncadre(std::string("Backup: ") + kOptionBackupCaptions[options_.optionBackup ? 1 : 0],
                    '*');
    progress_.OnProgress(progress::Started{start_, AppCaption()});
    Operations().stopRequested[base_] = false;
    progress_.OnProgress(progress::ControlsEnabled{true});
}

// Steps 5 and 6: both roots must exist (an unmounted disk or a share that is down is not made
// up on the system disk); the day folders and "Config" are made below them, and must take
// writes.
bool BackupRun::PrepareRoots() {
    for (const std::string& root : {options_.serverDataFolder, options_.localBackupFolder}) {
        if (!FolderExists(root)) {
            Fail("Backup: Err: Backup root not found: " + root + ": the backup was not made",
                 GestErr_Fra(OwnError::FolderNotFound, root),
                 "\r\n\r\nLe disque ou le partage est-il monté ? Le backup de la base " +
                     cfg_.label + " n'a pas été fait.");
            return false;
        }
    }
    for (const std::string& day : {serverDay_, localDay_}) {
        std::error_code ec;
        fs::create_directories(day + "Config/", ec);
        if (int error = ec ? ec.value() : FolderWriteError(day + "Config/"); error != 0) {
            FolderFault(day, error);
            return false;
        }
    }
    return true;
}

// Step 7: the base's settings travel with its data.
bool BackupRun::CopySettings() {
    progress_.OnProgress(progress::PhaseChanged{"Paramètres"});
    std::error_code ec;
    for (fs::directory_iterator it(cfg_.configFolder, ec), end; !ec && it != end;
         it.increment(ec)) {
        if (!it->is_regular_file()) continue;
        const std::string name = it->path().filename().string();
        for (const std::string& day : {serverDay_, localDay_}) {
            if (File_Copy(it->path().string(), day + "Config/" + name, true)) continue;
            if (int error = FolderWriteError(day + "Config/"); IsFolderWriteFault(error)) {
                FolderFault(day, error);
                return false;
            }
            FileFailed("Config/" + name);
        }
    }
    return true;
}

// Step 8: every selected file of every station.
void BackupRun::BackupFiles() {
    for (int f = 0; f < kCatalogueSize && !outcome_.stopped && !outcome_.failed; ++f) {
        if (f == kUserRightsFile || !options_.files[f]) continue;
        if (!CatalogueEntryFor(f).Exists()) continue;
        progress_.OnProgress(progress::FileReached{f + 1, kCatalogueSize, ""});
        progress_.OnProgress(progress::StationReached{0, cfg_.stationCount});
        for (int s = 1; s <= cfg_.stationCount && !outcome_.stopped && !outcome_.failed; ++s) {
            const std::string name = StationFileName(f, s);
            if (Trim(name).empty()) continue;
            if (s > 1 && IsCommonFileName(name)) break;  // common to the base: once
            BackupStationFile(f, s);
        }
    }
}

// Step 8.2: one station's file.
void BackupRun::BackupStationFile(int f, int s) {
    const std::string label = CatalogueEntryFor(f).description + " Station: " + std::to_string(s);
    progress_.OnProgress(progress::StationReached{s, cfg_.stationCount});
    progress_.OnProgress(progress::FileReached{f + 1, kCatalogueSize, label});
    if (PlayersConfigured()) SendToPlayers(label);
    ServeEvents();

    const std::string name = StationFileName(f, s);
    const std::string source = ExistingCase(cfg_.dataFolder + name);
    TraceLog("Backup: Source file: " + source);
    if (!FileExists(source)) {
        TraceLog("Backup: Err: Source file not found: " + source);
        FileFailed(name);
        return;
    }
    TraceLog("Backup: Target server file: " + serverDay_ + BackupFileName(name));
    TraceLog("Backup: Target local file: " + localDay_ + BackupFileName(name));

    const StationFileJob job = JobFor(f, s, source);
    const StationFileResult result = CopyStationFile({sources_, copies_}, job, progress_);
    outcome_.records += result.copied;
    if (result.status == StepStatus::Stopped) outcome_.stopped = true;
    if (result.folderError != 0) {
        FolderFault(result.folder, result.folderError);
        return;
    }
    if (result.ok()) {
        ++outcome_.copiedFiles;
    } else if (result.status != StepStatus::Stopped) {
        FileFailed(name);
    }
}

StationFileJob BackupRun::JobFor(int f, int s, const std::string& source) {
    const std::string name = BackupFileName(StationFileName(f, s));
    StationFileJob job;
    job.base = base_;
    job.fileNumber = f;
    job.station = s;
    job.source = source;
    job.target = RecordDay() + name;
    job.targetMode = kOpenAccelerated;
    job.targetRole = localFirst_ ? "local" : "server";
    job.keyDialog = options_.keyOnError;
    if (IsHistoryFile(f)) {
        // History files are read newest first, on the key that leads with the date, so that a
        // limited backup keeps the latest days.
        const size_t length = static_cast<size_t>(HistoryKeyLength(f));
        job.keyNumber = HistoryKeyNumber(f);
        job.descending = true;
        const std::string lower =
            all_ ? std::string(length, '\0')
                 : DateKey(AddDays(start_, -HistoryDays(options_.historyDaysText))) +
                       std::string(static_cast<size_t>(HistoryFiller(f)), '\0');
        job.ranges.push_back({lower, std::string(length, '\xFF')});
        // Undated spot dates are kept in 1900: always keep them.
        if (f == kSpotDatesFile && !all_)
            job.ranges.push_back({"1900" + std::string(5, '\0'), "1900" + std::string(5, '\xFF')});
    } else {
        job.keyNumber = 0;
        job.ranges.push_back({std::string(100, '\0'), std::string(100, '\xFF')});
    }
    if (f == kSitesFile) {
        // The suite's sites stay on their machine.
        job.rewrite = [](std::string& record) {
            return RecordView(kSitesFile, record).Text("Header") == "SITES" ? RecordAction::Skip
                                                                            : RecordAction::Copy;
        };
    }
    const int base = base_;
    job.afterRecord = [base] {
        PauseWait(base);
        return !StopConfirmed(base);
    };
    job.spread.target = (localFirst_ ? serverDay_ : localDay_) + name;
    job.spread.sameFolder =
        SameFolder(localFirst_ ? options_.serverDataFolder : options_.localBackupFolder,
                   localFirst_ ? options_.localBackupFolder : options_.serverDataFolder);
    job.spread.recordDay = RecordDay();
    job.spread.towardsServer = localFirst_;
    return job;
}

void BackupRun::FileFailed(const std::string& name) {
    ++outcome_.failedFiles;
    outcome_.failedNames.push_back(name);
}

void BackupRun::Fail(const std::string& line, const std::string& what, const std::string& more) {
    outcome_.failed = true;
    outcome_.error = what;
    TraceLog(line);
    AffMsg(what + more, MsgButtons::Ok, MsgIcon::Critical);
}

// A folder of a root takes no writes: every later file would fail the same way.
void BackupRun::FolderFault(const std::string& folder, int error) {
    Fail("Backup: Err: " + folder + ": " + SystemReason(error) + ": the backup stops here",
         GestErr_Fra(OwnError::CannotWrite, folder) + " (" + SystemReasonFr(error) + ")",
         ".\r\n\r\nLe backup de la base " + cfg_.label +
             " est arrêté : les copies précédentes restent en place.");
}

// Steps 9 to 11: the run's end, shown, recorded and logged with its outcome.
void BackupRun::Finish() {
    const LocalTime end = AppClock().Now();
    const long long seconds = SecondsBetween(start_, end);
    outcome_.finished = !outcome_.failed && !outcome_.stopped;
    const progress::Outcome result = outcome_.Result();
    if (outcome_.finished) RecordDate(end);
    Summary(result);
    TraceLogEncadre("Backup: Ended. Duration: " + FormatDuration(seconds), '=');
    progress_.OnProgress(progress::ControlsEnabled{false});
    if (Operations().paused[base_]) {
        Operations().paused[base_] = false;
        progress_.OnProgress(progress::Paused{false});
    }
    std::string shown;
    if (outcome_.failed) {
        shown = outcome_.error;
    } else if (outcome_.failedFiles > 0) {
        shown = std::to_string(outcome_.failedFiles) +
                " fichier(s) en échec : " + NameList(outcome_.failedNames);
    }
    ended_ = progress::Ended{end, seconds, result, shown};
}

// Step 10: the date of the good run, under the name of the day folder it wrote.
void BackupRun::RecordDate(LocalTime end) {
    EcritureIni(cfg_.BkSysIni(), "Sauvegarde", "Date", FormatDateTime(end));
    EcritureIni(cfg_.BkSysIni(), "Sauvegarde", dayName_, FormatDateTime(end));
    progress_.OnProgress(
        progress::BackupRecorded{WeekdayMondayFirst(start_), end, outcome_.failedFiles == 0});
}

// The run's outcome: a line per base, the incident list and what the tab shows after a restart.
void BackupRun::Summary(progress::Outcome result) {
    std::string line = std::string("Backup: Summary: ") + ResultWord(result) + ": base " +
                       cfg_.label + ": " + std::to_string(outcome_.copiedFiles) +
                       " files copied, " + std::to_string(outcome_.failedFiles) + " failed";
    if (!outcome_.failedNames.empty()) line += " (" + NameList(outcome_.failedNames) + ")";
    TraceLog(line + ", " + std::to_string(outcome_.records) + " records");

    std::string detail;
    if (result == progress::Outcome::Failed) {
        detail = outcome_.error;
        RecordIncident("Backup de la base " + cfg_.label + " en échec : " + detail);
    } else if (result == progress::Outcome::Incomplete) {
        detail = std::to_string(outcome_.failedFiles) +
                 " fichier(s) en échec : " + NameList(outcome_.failedNames);
        RecordIncident("Backup de la base " + cfg_.label + " incomplet : " + detail);
    }
    SaveLastRun(base_, {start_, ResultWord(result), detail});
}

}  // namespace

progress::Outcome BackupOutcome::Result() const {
    if (!started) return progress::Outcome::Refused;
    if (failed) return progress::Outcome::Failed;
    if (stopped) return progress::Outcome::Stopped;
    if (failedFiles > 0) return progress::Outcome::Incomplete;
    return progress::Outcome::Finished;
}

std::string BackupDayFolder(const std::string& root, const std::string& dayName) {
    return NormaliseFolder(NormaliseFolder(NormaliseFolder(root) + "_Backup") + dayName);
}

std::string BackupFileName(const std::string& stationFileName) {
    return ReplaceAllIgnoreCase(stationFileName, ".bt6", ".btr");
}

std::string BackupLockFile(int base) {
    const std::string& folder =
        Site().localSettingsFolder.empty() ? BaseOf(base).configFolder : Site().localSettingsFolder;
    return folder + "Backup_Base" + std::to_string(base) + ".lock";
}

BackupOutcome BackupData(int base, bool all, ProgressObserver& progress) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return {};
    return BackupData(base, all, LoadBackupOptions(base), progress);
}

BackupOutcome BackupData(int base, bool all, const BackupOptions& options,
                         ProgressObserver& progress) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return {};
    return BackupRun(base, all, options, progress).Run();
}

void CommandBkpNow_Click(int base, ProgressObserver& progress) {
    // Refused before the question: another run holds the program.
    if (LongRunUnderWay()) {
        AffMsg(LongRunRefusal(), MsgButtons::Ok, MsgIcon::Critical);
        return;
    }
    MsgAnswer answer = AffMsg(
        "Voulez-vous sauvegarder toutes les données (sans tenir compte du nombre de jours "
        "d'historique à sauvegarder) ?",
        MsgButtons::YesNo, MsgIcon::Critical, AppCaption());
    BackupData(base, answer == MsgAnswer::Yes, progress);
}

void CommandBkpPause_Click(int base, ProgressObserver& progress) {
    if (base < 0 || base >= kMaxBases) return;
    Operations().paused[base] = !Operations().paused[base];
    progress.OnProgress(progress::Paused{Operations().paused[base]});
}

void CommandBkpStop_Click(int base) {
    if (base < 0 || base >= kMaxBases) {
        GestionDesErreurs(9, "Subscript out of range", "CommandBkpStop_Click:Frm_Main");
        return;
    }
    Operations().stopRequested[base] = true;
}

}  // namespace toverin
