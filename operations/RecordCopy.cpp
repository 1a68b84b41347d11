#include "operations/RecordCopy.h"

#include <algorithm>

#include "app/Dialogs.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordView.h"

namespace toverin {
namespace {

using namespace btr;

// Reads with the layer's own reports silenced: the copy reports a read failure itself, so that a
// damaged file is read around instead of ending an unattended night.
int16_t QuietRead(const RecordCopyJob& job, uint16_t op, std::string& data, std::string& key) {
    bool quiet = QuietFlag();
    QuietFlag() = true;
    BTRieve(job.base, op, data, key, job.keyNumber, job.fileNumber, job.station,
            "CopyRecords:Lib_Backup");
    QuietFlag() = quiet;
    return LastStatus();
}

}  // namespace

ScopedQuiet::ScopedQuiet() : previous_(QuietFlag()) {
    QuietFlag() = true;
}
ScopedQuiet::~ScopedQuiet() {
    QuietFlag() = previous_;
}

RecordCopyJob CopyJobFor(int base, int fileNumber, int station, const std::string& sourcePath,
                         const std::string& targetPath, OperationView& view,
                         const std::string& keyControl, const std::string& recordsControl,
                         long long expected) {
    RecordCopyJob job;
    job.base = base;
    job.fileNumber = fileNumber;
    job.station = station;
    job.targetBase = kCopyBank + base;
    job.sourcePath = sourcePath;
    job.targetPath = targetPath;
    job.view = &view;
    job.keyControl = keyControl;
    job.recordsControl = recordsControl;
    job.controlIndex = base;
    job.expected = expected;
    view.SetProgress(recordsControl, base, 0,
                     static_cast<int>(std::min<long long>(expected, 32767)));
    return job;
}

bool CloseCopy(const RecordCopyJob& job, const RecordCopyResult& copy) {
    FermetureFichierBTrieve(job.base, job.fileNumber, job.station);
    FermetureFichierBTrieve(job.targetBase, job.fileNumber, job.station);
    if (LastStatus() == kSuccess && !copy.writeError) return true;
    TraceLog("Err: " + std::to_string(LastStatus()) + " Incomplete copy: " + job.targetPath);
    return false;
}

std::string PrintableKey(const std::string& key) {
    std::string out;
    for (char c : key) {
        auto u = static_cast<unsigned char>(c);
        out.push_back(u < 32 || u == 255 ? ' ' : c);
    }
    return Utf8FromCp1252(TrimRight(out));
}

RecordCopyResult CopyRecords(const RecordCopyJob& job) {
    RecordCopyResult result;
    const size_t keyLength =
        static_cast<size_t>(std::max(1, KeyLength(job.fileNumber, job.keyNumber)));
    const std::string lower = job.lower.substr(0, std::min(job.lower.size(), keyLength));
    const std::string upper = job.upper.substr(0, std::min(job.upper.size(), keyLength));
    const uint32_t recordLength = CatalogueEntryFor(job.fileNumber).recordLength;
    const int maxProgress = static_cast<int>(std::min<long long>(job.expected, 32767));

    long long seen = 0;
    std::string data(recordLength, ' ');
    // Kept across records so that the loop allocates nothing per record.
    std::string current, record, blanks;
    std::string key = job.descending ? upper : lower;
    int16_t status =
        QuietRead(job, job.descending ? kGetLessOrEqual : kGetGreaterOrEqual, data, key);
    while (true) {
        if (status == kEndOfFile) break;
        if (status != kSuccess) {
            // A damaged file: say so, then read around the damage from a key the user types.
            result.readError = true;
            if (!AutomaticMode())
                ErreurBTrieve(job.base, job.fileNumber, job.station, data, "CopyRecords:Lib_Backup",
                              true, 6);
            if (job.backupMessages) {
                TraceLog("Err: " + std::to_string(status) + " Reading File: " + job.sourcePath);
                TraceLog("Err: Key: " + PrintableKey(key));
            } else {
                TraceLog("Err: " + std::to_string(status) + " File: " + job.sourcePath);
                break;
            }
            if (!job.keyDialog) break;
            AffMsg(std::string(
                       "Fichier endommagé. Vous allez devoir saisir une clé pour poursuivre la "
                       "sauvegarde\r\n") +
                       (job.descending ? "La clé doit être inférieure à celle affichée."
                                       : "La clé doit être supérieure à celle affichée."),
                   MsgButtons::Ok, MsgIcon::Exclamation);
            auto typed = AppDialogs().Input(
                {job.descending
                     ? "Clé (inférieure) à partir de laquelle il faut reprendre la sauvegarde"
                     : "Clé (supérieure) à partir de laquelle il faut reprendre la sauvegarde",
                 AppCaption(), PrintableKey(key)});
            if (!typed || Trim(*typed).empty()) break;
            std::string resume = Cp1252FromUtf8(*typed);
            resume.resize(std::max(resume.size(), keyLength), ' ');
            key = resume;
            status = QuietRead(job, job.descending ? kGetLessThan : kGetGreater, data, key);
            continue;
        }
        current.assign(key, 0, std::min(key.size(), keyLength));
        if (current > upper || current < lower) break;
        bool skip = job.skipSites && RecordView(job.fileNumber, data).Text("Header") == "SITES";
        if (!skip) {
            record.assign(data);
            blanks.assign(100, ' ');
            bool quiet = QuietFlag();
            QuietFlag() = job.backupMessages;  // the backup reports insert failures itself
            BTRieve(job.targetBase, kInsert, record, blanks, 0, job.fileNumber, job.station,
                    "CopyRecords:Lib_Backup");
            QuietFlag() = quiet;
            int16_t insert = LastStatus();
            if (insert == kSuccess) {
                ++result.copied;
            } else if (insert != kDuplicateKey) {
                result.writeError = true;
            }
            if (insert != kSuccess && insert != kDuplicateKey && job.backupMessages) {
                TraceLog("Err: " + std::to_string(insert) + " Reading File: " + job.sourcePath);
                TraceLog("Err: Key: " + PrintableKey(current));
                AffMsg("Err: " + std::to_string(insert) + " Sur le fichier: " + job.sourcePath +
                           " |Key: " + PrintableKey(current),
                       MsgButtons::Ok, MsgIcon::Critical);
            }
        }
        // Every 20 records the interface is served: key, progress, Pause and Stop.
        if (++seen % 20 == 0) {
            if (job.view && !job.keyControl.empty())
                job.view->SetText(job.keyControl, job.controlIndex, PrintableKey(current));
            if (job.view && !job.recordsControl.empty())
                job.view->SetProgress(
                    job.recordsControl, job.controlIndex,
                    static_cast<int>(std::min<long long>(result.copied, maxProgress)), maxProgress);
            ServeEvents();
        }
        if (job.afterRecord && !job.afterRecord()) {
            result.stopped = true;
            break;
        }
        status = QuietRead(job, job.descending ? kGetPrevious : kGetNext, data, key);
    }
    return result;
}

}  // namespace toverin
