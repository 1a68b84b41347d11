// Reporting the engine's failures: the status texts and the report that asks the user whether
// to abort, retry or ignore, or, unattended, logs and ends the program. Network failures are
// recorded as incidents, at most one every five minutes, so that a night of a flapping link
// leaves a readable incident list instead of hundreds of lines.
#include <cstdint>
#include <optional>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/Incidents.h"
#include "app/Log.h"
#include "app/Site.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/PervasiveState.h"

namespace toverin {

using namespace pervasive;

namespace {

constexpr uint64_t kNetworkIncidentInterval = 300000;

std::optional<uint64_t>& LastNetworkIncident() {
    static std::optional<uint64_t> tick;
    return tick;
}

bool IsNetworkStatus(int status) {
    return status >= 3000 && status <= 3132;
}

bool NeedsHelpLine(int status, int operation) {
    return status == 2 || status == 14 || status == 15 || status == 19 || status == 30 ||
           (status == btr::kKeyNotFound && operation == btr::kDelete);
}

std::string StationName(int base, int station) {
    const auto& bases = Site().bases;
    if (base >= 0 && base < static_cast<int>(bases.size()) && station >= 1 &&
        station <= static_cast<int>(bases[base].stations.size()) &&
        !bases[base].stations[station - 1].label.empty())
        return bases[base].stations[station - 1].label;
    return DefaultStationLabel(station);
}

std::string WithoutLineFeeds(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return ReplaceAll(text, "\n", " |");
}

void LogReport(const std::string& text) {
    for (std::string_view line : SplitLines(text))
        if (!line.empty()) TraceLog(line);
}

}  // namespace

namespace pervasive {
void ResetNetworkIncidentTime() {
    LastNetworkIncident().reset();
}
}  // namespace pervasive

std::string ErreurBTrieveLibelle(int status, const std::string& fileName) {
    TraceProcedure(kModuleErrors, "ErreurBTrieveLibelle");
    return Guarded<std::string>(
        ProcName("ErreurBTrieveLibelle", kModuleErrors), "", [&]() -> std::string {
            std::string text;
            switch (status) {
                case 1:
                    text = "Err: 1: The operation parameter is invalid";
                    break;
                case 2:
                    text = "Err: 2: The application encountered an I/O error";
                    break;
                case 3:
                    text = "Err: 3: The file is not open";
                    break;
                case 4:
                    text = "Err: 4: The application cannot find the key value";
                    break;
                case 5:
                    text = "Err: 5: The record has a key field containing a duplicate key value";
                    break;
                case 6:
                    text = "Err: 6: The key number parameter is invalid";
                    break;
                case 7:
                    text = "Err: 7: The key number has changed";
                    break;
                case 8:
                    text = "Err: 8: The current positioning is invalid";
                    break;
                case 11:
                    text = "Err: 11: The specified filename is invalid (" + fileName + ")";
                    break;
                case 12:
                    text = "Err: 12: The MicroKernel cannot find the specified file (" + fileName +
                           ")";
                    break;
                case 18:
                    text = "Err: 18: The disk is full";
                    break;
                case 19:
                    text = "Err: 19: The application encountered an unrecoverable error";
                    break;
                case 30:
                    text = "Err: 30: The file specified is not a MicroKernel file";
                    break;
                case 46:
                    text = "Err: 46: Access to the requested file is denied (File locked ?)";
                    break;
                case 161:
                    text = "Err: 161: The maximum number of user count licenses has been reached";
                    break;
                case 2007:
                    text = "Err: 2007: A pointer parameter is invalid";
                    break;
                default:
                    text = "Err:" + std::to_string(status);
                    if (status >= 3103 && status <= 3132) text += ": Network error";
                    break;
            }
            return text + "\n";
        });
}

ErrorChoice SlotBank::ErreurBTrieve(int base, int fileNumber, int station, const std::string& data,
                                    const std::string& caller, bool quietBox, int operation) {
    (void)data;  // the history shows what the call carried
    return Report(base, fileNumber, station, caller, quietBox, operation, false);
}

ErrorChoice SlotBank::Report(int base, int fileNumber, int station, const std::string& caller,
                             bool quietBox, int operation, bool repeats) {
    TraceProcedure(kModuleErrors, "ErreurBTrieve");
    return Guarded<ErrorChoice>(
        ProcName("ErreurBTrieve", kModuleErrors), ErrorChoice::Ignore, [&]() -> ErrorChoice {
            const int status = lastStatus_;
            if (status == btr::kSuccess || status == btr::kConflict) return ErrorChoice::Ok;

            std::string path = SlotPath(base, fileNumber, station < 1 ? 1 : station);
            std::string text = FormatDateTime(AppClock().Now()) + "\n";
            if (fileNumber >= 0 && fileNumber <= kLastRealFile)
                text += StationName(base, station) + "  (" + caller + ")\n";
            std::string libelle = ErreurBTrieveLibelle(status, path);
            text += libelle;
            if (status != 161) {
                int position = 1;
                for (const std::string& line : CallHistory(base))
                    text += ">" + std::to_string(position++) + line + "\n";
            }
            if (NeedsHelpLine(status, operation)) text += MessageCatalogue("Divers00") + "\n";

            bool goesOn = false;
            if (IsNetworkStatus(status)) {
                uint64_t now = GetTickCount64();
                auto& last = LastNetworkIncident();
                if (!last || now - *last >= kNetworkIncidentInterval) {
                    RecordIncident("Err: Network Pervasive errors: " + std::to_string(status) +
                                   " |" + WithoutLineFeeds(libelle));
                    last = now;
                    goesOn = true;
                }
                text += "Le programme a rencontré un problème de connexion au serveur.\n";
                text += "Veuillez vérifier la connectique de votre réseau.\n";
            }
            LogReport(text);

            if (AutomaticMode()) {
                TraceLogForce();
                if (goesOn) return ErrorChoice::Ok;
                EndProgram("Record engine error " + std::to_string(status) + " (" + caller +
                           ") in automatic mode");
                return ErrorChoice::Abort;
            }
            if (quietBox) {
                AffMsg(text, MsgButtons::Ok, MsgIcon::Information);
                return ErrorChoice::Ok;
            }
            switch (AffMsg(text, MsgButtons::AbortRetryIgnore, MsgIcon::Critical, "",
                           repeats ? MsgAnswer::Abort : MsgAnswer::Ignore)) {
                case MsgAnswer::Retry:
                    return ErrorChoice::Retry;
                case MsgAnswer::Abort:
                case MsgAnswer::Cancel:
                    TraceLog("Err: BTrieve: the user ended the program (" + caller + ")");
                    EndProgram("Record engine error " + std::to_string(status) + " (" + caller +
                               "): Abort");
                    return ErrorChoice::Abort;
                default:
                    return ErrorChoice::Ignore;
            }
        });
}

}  // namespace toverin
