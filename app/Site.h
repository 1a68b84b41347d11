// The site's configuration: the suite root and settings folders, "KV3_Config.ini" with its bases,
// each base's configuration folder ("KV3_Systeme.ini", "BK_PRG.ini", ...) and its stations with
// their sound folders. Filled at start-up by InitGeneralSite; every other part finds a base's
// files through it.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace toverin {

inline constexpr int kMaxBases = 8;
inline constexpr int kMaxStations = 10;
inline constexpr int kSoundTypes = 8;

struct SoundType {
    const char* key;
    const char* prefix;
    const char* defaultFolder;
};
extern const std::array<SoundType, kSoundTypes> kSoundTypeTable;

struct StationConfig {
    std::string label;
    bool active = true;
    std::array<std::string, kSoundTypes> soundFolders;
};

struct BaseConfig {
    std::string label;
    bool active = false;
    int stationCount = 1;
    std::string logFolder;
    std::string localFolder;
    std::string sharedFolder;
    std::string dataFolder;
    std::string dataBackupFolder;  // the data folder's name followed by "_Backup"
    std::string configFolder;      // the base's own settings folder
    // "Dossier_NinSight": the folder of the NinSight interface, which holds that TV system's
    // record file; "" when the site has none.
    std::string ninSightFolder;
    std::string radioIdentity;
    bool databasePresent = false;
    std::vector<StationConfig> stations;

    std::string SystemeIni() const { return configFolder + "KV3_Systeme.ini"; }
    std::string BkPrgIni() const { return configFolder + "BK_PRG.ini"; }
    std::string BkSysIni() const { return configFolder + "Bk_Sys.ini"; }
    std::string ServeurIni() const { return configFolder + "KV3_Toverin_Serveur.ini"; }
};

struct SiteConfig {
    std::string name;
    bool active = true;
    int baseCount = 1;                // NbBase, 1..8
    int currentBase = 1;              // NoBase, 1-based as written in the file
    std::string settingsFolder;       // root + "Settings/"
    std::string localSettingsFolder;  // settings + "_Local/"
    std::string appSettingsFolder;    // settings + "KV3_Toverin/"
    std::string skinsFolder;
    std::string configFile;  // "KV3_Config.ini"
    std::vector<BaseConfig> bases;
};

SiteConfig& Site();
void ResetSite();

// The section of "KV3_Config.ini" that holds base `base` (0-based): "Base_01" .. "Base_08".
std::string BaseSection(int base);
// "Base " and the base number on two digits (1-based), the label of a base with none.
std::string DefaultBaseLabel(int base);
std::string DefaultStationLabel(int station);

// A folder key: its value, or `defaultFolder` when the key is missing or blank.
std::string LectureIniDossier(const std::string& file, const std::string& section,
                              const std::string& key, const std::string& defaultFolder);

// The settings folders under the suite root (created when missing); also loads the drive table
// from "Settings/_Local/KV3_Drives.ini".
void DetermineDossierSettings();
void DetermineDossierSettingsApplication();
void DetermineDossierSkins();
// Establishes the path of "KV3_Config.ini" and carries an older configuration over when the file
// does not exist yet.
void DetermineFichierConfig();
void Transfert_Win_KV3Config();
// Reads "NbBase" and "NoBase" (clamped to 1..8).
void InitGeneralDossierConfigBases();

enum class SiteInitResult { Ok, Cancelled };
// Reads every base and its stations; a base whose database cannot be found is asked about.
// Cancelled means the user chose to end the program.
SiteInitResult InitGeneralSite();
// The label of base `base` from its own "KV3_Systeme.ini".
std::string DetermineDossierConfig_Bases_Libelle(int base);

// The caption during a long operation of `base`: "Kavella: Toverin - V x - <activity> <base>"
// (activity " - Backup en cours de la base " and its siblings).
std::string OperationCaption(const std::string& activity, int base);

// A settings file of the program: the application settings folder ("Settings/KV3_Toverin/"),
// "KV3_Toverin", `suffix` and `extension` ("_Duplication", ".Ini" give the duplication hour
// grid). One file for the whole site: every base reads the same one.
std::string NomFichierSettings(const std::string& suffix, const std::string& extension);

// The file whose presence says the database is there.
inline constexpr const char* kDatabaseMarkerFile = "FRAD000.bt6";

}  // namespace toverin
