#include "operations/BackupHealth.h"

#include "app/DateTime.h"
#include "app/FileOps.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Site.h"
#include "app/Text.h"
#include "operations/Backup.h"

namespace toverin {
namespace {

constexpr const char* kStartKey = "Backup_Dernier_Debut";
constexpr const char* kResultKey = "Backup_Dernier_Resultat";
constexpr const char* kDetailKey = "Backup_Dernier_Detail";

const BaseConfig& BaseOf(int base) {
    return Site().bases.at(static_cast<size_t>(base));
}

std::optional<LocalTime> ReadTime(const std::string& text) {
    LocalTime t;
    if (ParseDateTime(text, t)) return t;
    return std::nullopt;
}

// At most `count` characters of a UTF-8 text.
std::string Prefix(const std::string& text, size_t count) {
    size_t seen = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && seen++ == count)
            return text.substr(0, i);
    }
    return text;
}

std::string Plural(long long n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n > 1 ? many : one);
}

// A "Start" = "ON" that no running backup explains: set back and said.
void ResetInterruptedRun(int base) {
    const BaseConfig& cfg = BaseOf(base);
    const std::string marker = cfg.BkPrgIni();
    if (LectureIni(marker, "Data_Backup", "Start", "") != "ON") return;
    FileLock lock(BackupLockFile(base));
    if (!lock.held()) return;  // a backup of the base runs in another program: its marker
    EcritureIni(marker, "Data_Backup", "Start", "0FF");
    if (LectureIni(marker, "Data_Backup", "Pause", "") == "ON")
        EcritureIni(marker, "Data_Backup", "Pause", "0FF");
    LastRun last = LoadLastRun(base);
    const std::string when = last.start ? FormatDateTime(*last.start) : std::string("?");
    TraceLog("Backup: Err: The backup of base " + cfg.label + " started " + when +
             " was interrupted (program or machine stopped during the run): Start set back to 0FF");
    last.result = "Interrupted";
    last.detail = "le programme ou la machine s'est arrêté pendant le backup du " + when +
                  " ; les copies précédentes restent en place";
    SaveLastRun(base, last);
    RecordIncident("Backup de la base " + cfg.label + " interrompu : " + last.detail);
}

}  // namespace

LastRun LoadLastRun(int base) {
    const std::string file = ServeurIniFile(base);
    const std::string section = PlanSection(base);
    LastRun run;
    run.start = ReadTime(LectureIni(file, section, kStartKey, ""));
    run.result = LectureIni(file, section, kResultKey, "");
    run.detail = LectureIni(file, section, kDetailKey, "");
    return run;
}

void SaveLastRun(int base, const LastRun& run) {
    const std::string file = ServeurIniFile(base);
    const std::string section = PlanSection(base);
    EcritureIni(file, section, kStartKey, run.start ? FormatDateTime(*run.start) : "");
    EcritureIni(file, section, kResultKey, run.result);
    // The reader takes 254 characters at most.
    EcritureIni(file, section, kDetailKey, Prefix(run.detail, 240));
}

std::optional<LocalTime> LastGoodBackup(int base) {
    return ReadTime(LectureIni(BaseOf(base).BkSysIni(), "Sauvegarde", "Date", ""));
}

std::string BackupAgeText(const std::optional<LocalTime>& lastGood, LocalTime now) {
    if (!lastGood) return "Aucun backup réussi enregistré";
    const long long seconds = std::max(0LL, SecondsBetween(*lastGood, now));
    std::string age;
    if (seconds >= 2 * 86400) {
        age = Plural(seconds / 86400, "jour", "jours");
    } else if (seconds >= 3600) {
        age = Plural(seconds / 3600, "heure", "heures");
    } else {
        age = Plural(seconds / 60, "minute", "minutes");
    }
    return "Dernier backup réussi il y a " + age;
}

std::string LastRunText(const LastRun& run) {
    std::string word;
    if (run.result == "Incomplete") {
        word = "Incomplet";
    } else if (run.result == "Stopped") {
        word = "Arrêté";
    } else if (run.result == "Failed") {
        word = "Échec";
    } else if (run.result == "Interrupted") {
        word = "Interrompu";
    } else {
        return "";
    }
    return run.detail.empty() ? word : word + " : " + run.detail;
}

std::string CheckBackupAtStartup(int base, const OperationPlan& backupPlan, int staleDays,
                                 LocalTime now) {
    ResetInterruptedRun(base);
    if (!backupPlan.active) return "";  // nobody expects this base's backups at night
    const BaseConfig& cfg = BaseOf(base);
    const std::optional<LocalTime> lastGood = LastGoodBackup(base);
    const LastRun last = LoadLastRun(base);
    std::vector<std::string> problems;
    if (!lastGood || SecondsBetween(*lastGood, now) > static_cast<long long>(staleDays) * 86400) {
        problems.push_back(lastGood ? "le dernier backup réussi date du " +
                                          FormatLongDateTime(*lastGood) + " (plus de " +
                                          Plural(staleDays, "jour", "jours") + ")"
                                    : "aucun backup réussi n'est enregistré");
    }
    const std::optional<LocalTime> due = LastDueDate(backupPlan, now);
    const std::optional<LocalTime> tried = last.start ? last.start : lastGood;
    if (due && (!tried || *tried < *due))
        problems.push_back("le backup prévu le " + FormatLongDate(*due) + " à " +
                           FormatShortTime(*due) + " n'a pas été fait (programme arrêté)");
    if (problems.empty()) return "";
    std::string text = "Base " + cfg.label + " : " + problems[0];
    for (size_t i = 1; i < problems.size(); ++i) text += " ; " + problems[i];
    TraceLog("Backup: Warning: " + text);
    RecordIncident(text);
    return text;
}

}  // namespace toverin
