#include "operations/CopyStep.h"

#include <algorithm>

#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Text.h"

namespace toverin {
namespace {

using namespace btr;

// A damaged file: say so, then read around the damage from a key the user types.
std::optional<std::string> AskResumeKey(const RecordCopyJob& job, const CopyStepOptions& options,
                                        int16_t status, const std::string& key) {
    if (!AutomaticMode())
        job.source->ErreurBTrieve(job.base, job.fileNumber, job.station, "", job.caller, true,
                                  kGetNext);
    if (options.messages == CopyMessages::Restore) {
        TraceLog("Err: " + std::to_string(status) + " File: " + options.sourcePath);
        return std::nullopt;
    }
    TraceLog("Err: " + std::to_string(status) + " Reading File: " + options.sourcePath);
    TraceLog("Err: Key: " + PrintableKey(key));
    if (!options.keyDialog) return std::nullopt;
    AffMsg(std::string("Fichier endommagé. Vous allez devoir saisir une clé pour poursuivre la "
                       "sauvegarde\r\n") +
               (job.descending ? "La clé doit être inférieure à celle affichée."
                               : "La clé doit être supérieure à celle affichée."),
           MsgButtons::Ok, MsgIcon::Exclamation);
    auto typed = AppDialogs().Input(
        {job.descending ? "Clé (inférieure) à partir de laquelle il faut reprendre la sauvegarde"
                        : "Clé (supérieure) à partir de laquelle il faut reprendre la sauvegarde",
         AppCaption(), PrintableKey(key)});
    if (!typed || Trim(*typed).empty()) return std::nullopt;
    return Cp1252FromUtf8(*typed);
}

}  // namespace

RecordCopyJob CopyJobFor(CopyBanks banks, int base, int fileNumber, int station,
                         const CopyStepOptions& options, OperationView& view) {
    RecordCopyJob job;
    job.source = &banks.sources;
    job.base = base;
    job.fileNumber = fileNumber;
    job.station = station;
    job.target = &banks.copies;
    job.targetBase = base;
    job.targetStation = station;
    job.caller = "CopyRecords:Lib_Backup";
    job.keyNumber = options.keyNumber;
    job.lower = options.lower;
    job.upper = options.upper;
    job.descending = options.descending;
    const int maxProgress = static_cast<int>(std::min<long long>(options.expected, 32767));
    view.SetProgress(options.recordsControl, base, 0, maxProgress);
    job.progress = [&view, options, base, maxProgress](long long copied, const std::string& key) {
        if (!options.keyControl.empty()) view.SetText(options.keyControl, base, PrintableKey(key));
        if (!options.recordsControl.empty())
            view.SetProgress(options.recordsControl, base,
                             static_cast<int>(std::min<long long>(copied, maxProgress)),
                             maxProgress);
    };
    job.onReadError = [job, options](int16_t status, const std::string& key) {
        return AskResumeKey(job, options, status, key);
    };
    if (options.messages == CopyMessages::Backup) {
        job.onInsertError = [options](int16_t status, const std::string& key) {
            TraceLog("Err: " + std::to_string(status) + " Reading File: " + options.sourcePath);
            TraceLog("Err: Key: " + PrintableKey(key));
            AffMsg("Err: " + std::to_string(status) + " Sur le fichier: " + options.sourcePath +
                       " |Key: " + PrintableKey(key),
                   MsgButtons::Ok, MsgIcon::Critical);
            return true;
        };
    }
    return job;
}

bool CloseCopy(const RecordCopyJob& job, const RecordCopyResult& copy, const std::string& target) {
    job.source->FermetureFichierBTrieve(job.base, job.fileNumber, job.station);
    job.target->FermetureFichierBTrieve(job.targetBase, job.fileNumber, job.targetStation);
    const int16_t closed = job.target->LastStatus();
    if (closed == kSuccess && !copy.writeError) return true;
    TraceLog("Err: " + std::to_string(closed) + " Incomplete copy: " + target);
    return false;
}

}  // namespace toverin
