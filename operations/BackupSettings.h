// The settings the backup, restore and creation read, per base: the options window's folders,
// backup way, history days and damaged-file dialog, and the files the Backup tab has selected.
// Kept in the machine's "KV3_Toverin_Local.ini", section "Base_" + the base index (0..7).
#pragma once

#include <array>
#include <string>

#include "store/Catalogue.h"

namespace toverin {

// Catalogue files the backup treats apart.
inline constexpr int kUserRightsFile = 11;  // the user rights stay on their machine
inline constexpr int kSpotDatesFile = 7;    // a limited backup keeps its undated (1900) records too
inline constexpr int kSitesFile = 29;       // its "SITES" records stay on their machine

// Days after which a base's last good backup is too old, unless the site says otherwise.
inline constexpr int kDefaultStaleDays = 2;

struct BackupOptions {
    std::string serverDataFolder;   // TexteDossierDonnees: the base's shared data folder
    std::string localBackupFolder;  // TexteDossierDonneesLocal
    int optionBackup = 0;           // OptionBackup: 0 = local copy first, 1 = server copy first
    std::string historyDaysText = "30";        // TexteBackupNbJour
    bool keyOnError = false;                   // CheckBkpErr
    int staleDays = kDefaultStaleDays;         // warn when the last good backup is older
    std::array<bool, kCatalogueSize> files{};  // ListeDesFichiers selection
};

inline constexpr const char* kOptionBackupCaptions[2] = {
    "Créer le backup en local et le recopier sur le serveur",
    "Créer le backup sur le serveur et le recopier en local"};

std::string LocalIniFile();
BackupOptions LoadBackupOptions(int base);
void SaveBackupOptions(int base, const BackupOptions& options);
// The days of history a limited backup keeps: the absolute value of the number in the text,
// raised to 5 when smaller.
int HistoryDays(const std::string& text);
// The text holds a number for HistoryDays to read (a sign, then digits, blanks around); "abc" or
// "" would silently mean the 5-day floor.
bool HistoryDaysReadable(const std::string& text);

}  // namespace toverin
