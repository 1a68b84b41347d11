#include "operations/BackupSettings.h"

#include <algorithm>
#include <cstdlib>

#include "app/Ini.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"

namespace toverin {
namespace {

// Sections are indexed by the base index (0..7), as the program's other settings are.
std::string Section(int base) {
    return "Base_" + std::to_string(base);
}

}  // namespace

std::string LocalIniFile() {
    return Site().localSettingsFolder + "KV3_Toverin_Local.ini";
}

int HistoryDays(const std::string& text) {
    std::string t = Trim(text);
    size_t i = (!t.empty() && (t[0] == '-' || t[0] == '+')) ? 1 : 0;
    long long value = 0;
    for (; i < t.size() && t[i] >= '0' && t[i] <= '9' && value < 100000; ++i)
        value = value * 10 + (t[i] - '0');
    return static_cast<int>(value < 5 ? 5 : value);
}

bool HistoryDaysReadable(const std::string& text) {
    const std::string t = Trim(text);
    const size_t i = (!t.empty() && (t[0] == '-' || t[0] == '+')) ? 1 : 0;
    return i < t.size() && t[i] >= '0' && t[i] <= '9';
}

BackupOptions LoadBackupOptions(int base) {
    BackupOptions o;
    const BaseConfig* b =
        base >= 0 && base < static_cast<int>(Site().bases.size()) ? &Site().bases[base] : nullptr;
    const std::string file = LocalIniFile();
    const std::string s = Section(base);
    o.serverDataFolder =
        NormaliseFolder(LectureIniDossier(file, s, "Dossier_Donnees", b ? b->dataFolder : ""));
    o.localBackupFolder = NormaliseFolder(
        LectureIniDossier(file, s, "Dossier_Donnees_Local", b ? b->localFolder + "KV_Data/" : ""));
    o.optionBackup = LectureIni(file, s, "Option_Backup", "0") == "1" ? 1 : 0;
    o.historyDaysText = LectureIni(file, s, "Backup_NbJour", "30");
    o.keyOnError = LectureIni(file, s, "Backup_SaisieCle", "0") == "1";
    o.staleDays = std::max(
        1,
        std::atoi(
            LectureIni(file, s, "Backup_Alerte_Jours", std::to_string(kDefaultStaleDays)).c_str()));
    std::string files = LectureIni(file, s, "Fichiers_Backup", "");
    for (int f = 0; f < kCatalogueSize; ++f) {
        bool exists = CatalogueEntryFor(f).Exists();
        o.files[f] = exists && (files.size() > static_cast<size_t>(f) ? files[f] == '1' : true);
    }
    return o;
}

void SaveBackupOptions(int base, const BackupOptions& o) {
    const std::string file = LocalIniFile();
    const std::string s = Section(base);
    EcritureIni(file, s, "Dossier_Donnees", o.serverDataFolder);
    EcritureIni(file, s, "Dossier_Donnees_Local", o.localBackupFolder);
    EcritureIni(file, s, "Option_Backup", o.optionBackup ? "1" : "0");
    EcritureIni(file, s, "Backup_NbJour", o.historyDaysText);
    EcritureIni(file, s, "Backup_SaisieCle", o.keyOnError ? "1" : "0");
    EcritureIni(file, s, "Backup_Alerte_Jours", std::to_string(o.staleDays));
    std::string files;
    for (bool f : o.files) files.push_back(f ? '1' : '0');
    EcritureIni(file, s, "Fichiers_Backup", files);
}

}  // namespace toverin
