#include "operations/CopyStep.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "app/Dialogs.h"
#include "app/FileOps.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/engine/FileSwap.h"

namespace toverin {
namespace {

using namespace btr;

constexpr const char* kInUseBackup =
    "' en cours d'utilisation.\r\n\r\nVeuillez arrêter Kavella, voire les postes.\r\n\r\n"
    "Puis recommencez l'opération.";

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

// Something holds the file open: its lock, or the lock of the engine's shared memory beside it.
bool HeldOpen(const std::string& path) {
    if (IsFileInUse(path)) return true;
    for (const std::string& companion : engine::CompanionFiles(path))
        if (IsFileInUse(companion)) return true;
    return false;
}

// One run of the step; each stage is a method, in the order they run.
class StationFileStep {
  public:
    StationFileStep(CopyBanks banks, const StationFileJob& job, ProgressObserver& progress)
        : banks_(banks),
          job_(job),
          progress_(progress),
          temp_(NewCopyName(job.target)),
          backup_(job.messages == CopyMessages::Backup) {}

    StationFileResult Run() {
        if (!OpenSource()) return Result(StepStatus::SourceFailed);
        if (!TargetReplaceable()) return CloseSource(StepStatus::TargetKept);
        if (job_.wholeFile && CopyWhole()) return result_;
        if (!CreateNewFile()) return CloseSource(StepStatus::CopyFailed);
        if (!OpenNewFile()) return Discard(StepStatus::CopyFailed);
        const bool complete = Copy();
        if (!CloseBoth()) return Discard(StepStatus::CopyFailed);
        if (stopped_) return Discard(StepStatus::Stopped);
        if (!complete) return Discard(StepStatus::CopyFailed);
        if (!PutInPlace()) return Result(result_.status);
        result_.status = StepStatus::Done;
        if (backup_) SpreadToOtherRoot();
        return result_;
    }

  private:
    StationFileResult Result(StepStatus status) {
        result_.status = status;
        return result_;
    }

    StationFileResult CloseSource(StepStatus status) {
        banks_.sources.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        return Result(status);
    }

    // The new file goes; the target stays as it was, and the log says so.
    StationFileResult Discard(StepStatus status) {
        if (banks_.sources.IsFileOpen(job_.base, job_.fileNumber, job_.station))
            banks_.sources.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        if (banks_.copies.IsFileOpen(job_.base, job_.fileNumber, job_.station))
            banks_.copies.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        engine::RemoveUnfinished(temp_);
        const bool existed = PathExists(job_.target);
        if (backup_) {
            TraceLog(
                std::string(status == StepStatus::Stopped ? "Backup: Stopped: " : "Backup: Err: ") +
                (existed ? "Last week's copy kept: " : "No copy made: ") + job_.target);
        } else {
            TraceLog(std::string(status == StepStatus::Stopped ? "Restore: Stopped: " : "Err: ") +
                     "The file was left as it was: " + job_.target);
        }
        return Result(status);
    }

    // A failure to write into `folder`: is it that folder (no space, read-only ...) rather than
    // this file? The caller then stops writing there. The engine's "disk full" says so by itself
    // (the failed write may have given its room back by the time the folder is tried).
    bool FolderFault(const std::string& folder, int16_t status = kSuccess) {
        const int error = status == kDiskFull ? ENOSPC : FolderWriteError(folder);
        if (!IsFolderWriteFault(error)) return false;
        result_.folderError = error;
        result_.folder = folder;
        return true;
    }

    bool OpenSource() {
        const uint32_t length = CatalogueEntryFor(job_.fileNumber).recordLength;
        ScopedQuiet quiet(banks_.sources);
        // Opened and counted: a file whose structure cannot be read is no source either.
        const bool opened =
            banks_.sources.OuvertureFichierBTrieve(job_.base, job_.fileNumber, job_.source, length,
                                                   job_.station, kOpenReadOnly) == kSuccess;
        result_.expected =
            opened ? banks_.sources.RecordCount(job_.base, job_.fileNumber, job_.station) : -1;
        if (result_.expected < 0) {
            if (opened)
                banks_.sources.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
            result_.expected = 0;
            TraceLog(
                (backup_ ? "Err: Unable to open source file: " : "Err: Can't open the file: ") +
                job_.source);
            return false;
        }
        if (backup_) TraceLog("Backup: Open source file: " + job_.source);
        return true;
    }

    // Checked before anything is copied, so that a target that cannot be replaced is said at
    // once; the replacement itself comes after the copy.
    bool TargetReplaceable() {
        const std::string& target = job_.target;
        // Nobody opens last week's copies: a lock check suffices there, and costs nothing. A
        // live data file gets the engine's own check.
        const bool replaceable =
            backup_ ? !(PathExists(target) && !FileExists(target)) && !HeldOpen(target)
                    : engine::CheckReplaceable(target) == kSuccess;
        if (replaceable) return true;
        ReportNotReplaceable();
        return false;
    }

    void ReportNotReplaceable() {
        if (backup_)
            AffMsg("Impossible de détruire: " + job_.target, MsgButtons::Ok, MsgIcon::Critical);
        TraceLog("Err: Unable to delete " + job_.target);
    }

    // The whole-file way: the checked source copied as it is, then put in place. False when the
    // copy could not be made (the record way then runs); true when the step is over.
    bool CopyWhole() {
        banks_.sources.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        engine::RemoveUnfinished(temp_);
        if (!File_Copy(job_.source, temp_, true)) {
            engine::RemoveUnfinished(temp_);
            if (FolderFault(FolderOf(temp_))) {
                result_.status = StepStatus::CopyFailed;
                return true;
            }
            return ReopenSource();
        }
        if (!PutInPlace()) return true;
        result_.status = StepStatus::Done;
        result_.copiedWhole = true;
        AffMsg("Fichier copié: '" + job_.source + "'\r\n\r\nVers:\r\n\r\n" + job_.target,
               MsgButtons::Ok, MsgIcon::Information);
        TraceLog("Copy file: " + job_.source + " to " + job_.target);
        return true;
    }

    // Back to the record way after the whole-file way failed: the source is opened again.
    bool ReopenSource() {
        if (OpenSource()) return false;
        result_.status = StepStatus::SourceFailed;
        return true;
    }

    bool CreateNewFile() {
        engine::RemoveUnfinished(temp_);  // left by a run that was killed
        const int16_t created = CreationFichierBTrieve(temp_, job_.fileNumber);
        if (created == kSuccess) {
            if (backup_) TraceLog("Backup: File created: " + temp_);
            return true;
        }
        TraceLog("Err: " + std::to_string(created) + " Create File: " + temp_);
        // A folder that takes no writes is the run's to report, once.
        if (FolderFault(FolderOf(temp_), created)) return false;
        if (backup_) {
            AffMsg("Err: " + std::to_string(created) + " Creation du fichier: " + temp_,
                   MsgButtons::Ok, MsgIcon::Critical);
            if (PathExists(temp_))
                TraceLog("Err: File attributes: " + AttributeWords(temp_));
            else
                TraceLog("Err: File not found: " + temp_);
        }
        if (created == kFileInUseCreate)
            AffMsg("Fichier '" + temp_ + kInUseBackup, MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }

    bool OpenNewFile() {
        const uint32_t length = CatalogueEntryFor(job_.fileNumber).recordLength;
        ScopedQuiet quiet(banks_.copies);
        if (banks_.copies.OuvertureFichierBTrieve(job_.base, job_.fileNumber, temp_, length,
                                                  job_.station, job_.targetMode) != kSuccess) {
            TraceLog(
                (backup_ ? "Err: Unable to open target file: " : "Err: Can't open the file: ") +
                temp_);
            FolderFault(FolderOf(temp_));
            return false;
        }
        if (backup_) {
            TraceLog("Backup: Open target " + job_.targetRole + " file: " + temp_);
        } else {
            TraceLog("Restore started. File:       " + job_.target);
        }
        // The file being worked on is on the disk at once, should the run be killed.
        TraceLogForce();
        return true;
    }

    RecordCopyJob MakeJob() {
        RecordCopyJob job;
        job.source = &banks_.sources;
        job.base = job.targetBase = job_.base;
        job.fileNumber = job_.fileNumber;
        job.station = job.targetStation = job_.station;
        job.target = &banks_.copies;
        job.caller = "CopyRecords:Lib_Backup";
        job.keyNumber = job_.keyNumber;
        job.descending = job_.descending;
        job.rewrite = job_.rewrite;
        job.afterRecord = job_.afterRecord;
        const long long expected = result_.expected;
        job.progress = [this, expected](long long copied, const std::string& key) {
            progress_.OnProgress(progress::KeyReached{PrintableKey(key)});
            progress_.OnProgress(progress::RecordsDone{result_.copied + copied, expected});
        };
        job.onReadError = [this](int16_t status, const std::string& key) {
            return ReadError(status, key);
        };
        job.onInsertError = [this](int16_t status, const std::string& key) {
            InsertError(status, key);
            return false;  // one failure ends the file: the next records would meet it too
        };
        return job;
    }

    // Reads every range; true when every record within them was read.
    bool Copy() {
        progress_.OnProgress(progress::RecordsDone{0, result_.expected});
        RecordCopyJob job = MakeJob();
        bool complete = true;
        for (const KeyRange& range : job_.ranges) {
            job.lower = range.lower;
            job.upper = range.upper;
            RecordCopyResult copy = CopyRecords(job);
            result_.copied += copy.copied;
            stopped_ = stopped_ || copy.stopped;
            writeError_ = writeError_ || copy.writeError;
            if (copy.readError && !resumed_) complete = false;
            if (stopped_ || writeError_ || !complete) break;
        }
        TraceLog((backup_ ? "Backup: Ended: Records: " : "Restore ended.   Nb records: ") +
                 std::to_string(result_.copied) + " / " + std::to_string(result_.expected));
        result_.readAround = resumed_;
        return complete && !writeError_;
    }

    // A damaged source: say so, then (backup, dialog allowed) read around the damage from a key
    // the user types. Nothing typed ends the copy, and the copy is then not complete.
    std::optional<std::string> ReadError(int16_t status, const std::string& key) {
        if (!AutomaticMode())
            banks_.sources.ErreurBTrieve(job_.base, job_.fileNumber, job_.station, "",
                                         "CopyRecords:Lib_Backup", true, kGetNext);
        if (!backup_) {
            TraceLog("Err: " + std::to_string(status) + " File: " + job_.source);
            return std::nullopt;
        }
        TraceLog("Err: " + std::to_string(status) + " Reading File: " + job_.source);
        TraceLog("Err: Key: " + PrintableKey(key));
        if (!job_.keyDialog) return std::nullopt;
        AffMsg(std::string("Fichier endommagé. Vous allez devoir saisir une clé pour poursuivre "
                           "la sauvegarde\r\n") +
                   (job_.descending ? "La clé doit être inférieure à celle affichée."
                                    : "La clé doit être supérieure à celle affichée."),
               MsgButtons::Ok, MsgIcon::Exclamation);
        auto typed = AppDialogs().Input(
            {job_.descending
                 ? "Clé (inférieure) à partir de laquelle il faut reprendre la sauvegarde"
                 : "Clé (supérieure) à partir de laquelle il faut reprendre la sauvegarde",
             AppCaption(), PrintableKey(key)});
        if (!typed || Trim(*typed).empty()) {
            resumed_ = false;
            return std::nullopt;
        }
        resumed_ = true;
        return Cp1252FromUtf8(*typed);
    }

    void InsertError(int16_t status, const std::string& key) {
        if (FolderFault(FolderOf(temp_), status)) {
            TraceLog("Err: " + std::to_string(status) + " Writing File: " + temp_);
            return;
        }
        if (backup_) {
            TraceLog("Err: " + std::to_string(status) + " Reading File: " + job_.source);
            TraceLog("Err: Key: " + PrintableKey(key));
            AffMsg("Err: " + std::to_string(status) + " Sur le fichier: " + job_.source +
                       " |Key: " + PrintableKey(key),
                   MsgButtons::Ok, MsgIcon::Critical);
        } else {
            TraceLog("Err: " + std::to_string(status) + " Writing File: " + job_.target);
            banks_.copies.ErreurBTrieve(job_.base, job_.fileNumber, job_.station, "",
                                        "CopyRecords:Lib_Restore", true, kInsert);
        }
    }

    // Closes the source and the new file; false (and a line) when the new file's writes did not
    // all reach the disk: such a copy must not replace anything.
    bool CloseBoth() {
        banks_.sources.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        banks_.copies.FermetureFichierBTrieve(job_.base, job_.fileNumber, job_.station);
        const int16_t closed = banks_.copies.LastStatus();
        if (closed == kSuccess && !writeError_) return true;
        TraceLog("Err: " + std::to_string(closed) + " Incomplete copy: " + temp_);
        FolderFault(FolderOf(temp_), closed);
        return false;
    }

    // The complete copy takes the target's place in one step.
    bool PutInPlace() {
        const bool existed = PathExists(job_.target);
        int error = 0;
        const int16_t status = engine::ReplaceFile(temp_, job_.target, !backup_, &error);
        if (status == kSuccess) {
            if (backup_ && existed) TraceLog("Backup: Server file deleted: " + job_.target);
            TraceLog((backup_ ? "Backup: New copy in place: " : "Restore: File in place: ") +
                     job_.target);
            return true;
        }
        engine::RemoveUnfinished(temp_);
        if (status == kIoError && FolderFault(FolderOf(job_.target))) {
            TraceLog("Err: " + SystemReason(error) + ": " + job_.target);
        } else {
            ReportNotReplaceable();
        }
        result_.status = status == kIoError ? StepStatus::CopyFailed : StepStatus::TargetKept;
        return false;
    }

    void SpreadToOtherRoot() {
        const Spread& spread = job_.spread;
        if (spread.target.empty()) return;
        if (spread.sameFolder) {
            TraceLog("Err: Local Backup unable: Source Folder = Target Folder: " +
                     spread.recordDay);
            AffMsg("Err: Copie locale impossible: Source = Cible: " + spread.recordDay,
                   MsgButtons::Ok, MsgIcon::Critical);
            return;
        }
        if (!FileExists(job_.target)) {
            AffMsg("Err: Copie locale impossible: Fichier non trouvé: " + job_.target,
                   MsgButtons::Ok, MsgIcon::Critical);
            TraceLog(std::string(spread.towardsServer
                                     ? "Err: Server Backup unable: No file found: "
                                     : "Err: Local Backup unable: No file found: ") +
                     job_.target);
            result_.spreadFailed = true;
            return;
        }
        // File_Copy writes aside and renames: the other root's copy is never half written.
        engine::RemoveCompanions(spread.target);
        if (!File_Copy(job_.target, spread.target, true)) {
            result_.spreadFailed = true;
            FolderFault(FolderOf(spread.target));
        }
    }

    CopyBanks banks_;
    const StationFileJob& job_;
    ProgressObserver& progress_;
    const std::string temp_;
    const bool backup_;
    StationFileResult result_;
    bool stopped_ = false;
    bool writeError_ = false;
    bool resumed_ = false;
};

}  // namespace

std::string NewCopyName(const std::string& target) {
    return target + ".new";
}

StationFileResult CopyStationFile(CopyBanks banks, const StationFileJob& job,
                                  ProgressObserver& progress) {
    return StationFileStep(banks, job, progress).Run();
}

}  // namespace toverin
