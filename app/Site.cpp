#include "app/Site.h"

#include <algorithm>

#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Startup.h"
#include "app/Text.h"

namespace toverin {

const std::array<SoundType, kSoundTypes> kSoundTypeTable = {{
    {"Dossiers_Sons_Mus", "000_", "C:\\KV_Sons\\Musique\\"},
    {"Dossiers_Sons_Jin", "JIN_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Lin", "LIN_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Rub", "RUB_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Inf", "INF_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Pub", "PUB_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Pre", "PRE_", "C:\\KV_Sons\\Autre\\"},
    {"Dossiers_Sons_Tmp", "TMP_", "C:\\KV_Sons\\Autre\\"},
}};

namespace {

SiteConfig gSite;

int Clamp(int v, int lo, int hi) {
    return std::max(lo, std::min(hi, v));
}

int ReadInt(const std::string& text, int fallback) {
    std::string t = Trim(text);
    if (t.empty()) return fallback;
    try {
        return std::stoi(t);
    } catch (...) {
        return fallback;
    }
}

// A folder read from configuration: native, ending with a separator, created when missing.
std::string ConfiguredFolder(const std::string& value) {
    std::string folder = NormaliseFolder(value);
    if (!folder.empty()) VerificationEtCreationRepertoire(folder);
    return folder;
}

std::string StationSection(int station) {
    return "Base_01_Station_" + ZeroPad(station, 2);
}

void ReadStations(BaseConfig& base) {
    base.stations.clear();
    const std::string ini = base.SystemeIni();
    for (int s = 1; s <= base.stationCount; ++s) {
        StationConfig st;
        st.label = LectureIni(ini, StationSection(s), "Lib", DefaultStationLabel(s));
        st.active = ReadInt(LectureIni(ini, StationSection(s), "Actif", "1"), 1) != 0;
        for (int t = 0; t < kSoundTypes; ++t) {
            std::string key = std::string(kSoundTypeTable[t].key) + ZeroPad(s, 2);
            st.soundFolders[t] = NormaliseFolder(
                LectureIniDossier(ini, "Base_01", key, kSoundTypeTable[t].defaultFolder));
        }
        base.stations.push_back(std::move(st));
    }
}

}  // namespace

SiteConfig& Site() {
    return gSite;
}
void ResetSite() {
    gSite = SiteConfig{};
}

std::string BaseSection(int base) {
    return "Base_" + ZeroPad(base + 1, 2);
}
std::string DefaultBaseLabel(int base) {
    return "Base " + ZeroPad(base + 1, 2);
}
std::string DefaultStationLabel(int station) {
    return "Station " + ZeroPad(station, 2);
}

std::string LectureIniDossier(const std::string& file, const std::string& section,
                              const std::string& key, const std::string& defaultFolder) {
    std::string value = LectureIni(file, section, key, defaultFolder);
    return Trim(value).empty() ? defaultFolder : value;
}

void DetermineDossierSettings() {
    gSite.settingsFolder = ExistingCase(SuiteRoot() + "Settings/");
    gSite.localSettingsFolder = ExistingCase(gSite.settingsFolder + "_Local/");
    VerificationEtCreationRepertoire(gSite.settingsFolder);
    VerificationEtCreationRepertoire(gSite.localSettingsFolder);
    LoadDriveTable(gSite.localSettingsFolder + "KV3_Drives.ini");
}

void DetermineDossierSettingsApplication() {
    Guarded("DetermineDossierSettingsApplication:Lib_SettingsConfig", 0, [] {
        if (gSite.settingsFolder.empty()) DetermineDossierSettings();
        gSite.appSettingsFolder = ExistingCase(gSite.settingsFolder + "KV3_Toverin/");
        for (const char* sub : {"", "Histo/", "RSS/", "Images/"})
            VerificationEtCreationRepertoire(gSite.appSettingsFolder + sub);
        return 0;
    });
}

std::string OperationCaption(const std::string& activity, int base) {
    const std::string label = base >= 0 && base < static_cast<int>(gSite.bases.size())
                                  ? gSite.bases[static_cast<size_t>(base)].label
                                  : DefaultBaseLabel(base);
    return std::string("Kavella: Toverin - V ") + TOVERIN_VERSION + activity + label;
}

std::string NomFichierSettings(const std::string& suffix, const std::string& extension) {
    if (gSite.appSettingsFolder.empty()) DetermineDossierSettingsApplication();
    return gSite.appSettingsFolder + "KV3_Toverin" + suffix + extension;
}

void DetermineDossierSkins() {
    gSite.skinsFolder = gSite.settingsFolder + "Skins/Styles/";
}

void DetermineFichierConfig() {
    Guarded("DetermineFichierConfig:Lib_SettingsConfig", 0, [] {
        if (gSite.settingsFolder.empty()) DetermineDossierSettings();
        gSite.configFile = ExistingCase(gSite.settingsFolder + "KV3_Config.ini");
        if (!FileExists(gSite.configFile)) Transfert_Win_KV3Config();
        return 0;
    });
}

void Transfert_Win_KV3Config() {
    Guarded("Transfert_Win_KV3Config:Lib_SettingsConfig", 0, [] {
        const std::string winIni = NativePath("C:\\Windows\\Win.ini");
        const bool unc = LectureIni(winIni, "Brennick", "UNC_Actif", "0FF") == "ON";
        std::string oldConfig = NormaliseFolder(
            LectureIni(winIni, "Brennick", unc ? "INI_KAVELLA_UNC" : "INI_KAVELLA", "") +
            "\\Config\\");
        if (oldConfig == "/Config/") oldConfig = NativePath("C:\\Brennick\\Kavella\\Config\\");
        const std::string radioName =
            LectureIni(oldConfig + "BK_Sys.ini", "Div_radio", "Nom_Radio", "Nom de la radio");
        const int bases =
            Clamp(ReadInt(LectureIni(winIni, "Brennick", "Nb_Base", "1"), 1), 1, kMaxBases);
        TraceLog("Transfert_Win_KV3Config: Old configuration: " + oldConfig +
                 " |Bases: " + std::to_string(bases));

        const std::string file = gSite.configFile;
        EcritureIni(file, "Site", "Lib", radioName);
        EcritureIni(file, "Site", "Actif", "1");
        EcritureIni(file, "Site", "NbBase", std::to_string(bases));
        EcritureIni(file, "Site", "NoBase", "1");

        struct Carried {
            const char* oldKey;
            const char* fallback;
            const char* newKey;
        };
        static const Carried folders[] = {
            {"REPLOG", "C:\\AudioLog\\", "Dossier_Log"},
            {"REPLOGPUB", "C:\\AudioLog\\Pub\\", "Dossier_Log_Pub"},
            {"REPBLOCNOTES", "C:\\Brennick\\Kavella\\Notes\\", "Dossier_Notes"},
            {"REPLOCAL", "", "Dossier_Local"},
            {"REPPARTAGE", "", "Dossier_Shared"},
            {"REPBTR", "C:\\BTRieve\\Data\\", "Dossier_Data"},
            {"REPSAUVEGARDE", "C:\\BTRieve\\Data\\", "Dossier_Data_Backup"},
        };

        for (int b = 0; b < bases; ++b) {
            std::string folder = oldConfig;
            if (bases > 1) {
                std::string key = "Ini_Base_" + ZeroPad(b + 1, 2);
                std::string value = LectureIni(winIni, "Brennick", key, "");
                if (!Trim(value).empty()) folder = NormaliseFolder(value);
            }
            const std::string oldSysteme = folder + "KV3_Systeme.ini";
            const int stations = Clamp(
                ReadInt(LectureIni(oldSysteme, "Stations", "Nb_Max", "1"), 1), 1, kMaxStations);
            const std::string section = BaseSection(b);
            EcritureIni(file, section, "Lib", bases == 1 ? radioName : DefaultBaseLabel(b));
            EcritureIni(file, section, "Actif", "1");
            EcritureIni(file, section, "NbStation", std::to_string(stations));
            EcritureIni(file, section, "NoStation", "1");
            EcritureIni(file, section, "Dossier_Config_Global", folder);
            const char* oldSection = unc ? "Repertoires_UNC" : "Repertoires";
            for (const auto& f : folders)
                EcritureIni(file, section, f.newKey,
                            LectureIni(oldSysteme, oldSection, f.oldKey, f.fallback));

            // The stations move into the base's own file, which lives in its configuration folder.
            for (int s = 1; s <= stations; ++s) {
                std::string stSection = StationSection(s);
                std::string label = LectureIni(oldSysteme, "Station_" + ZeroPad(s, 2), "Lib",
                                               DefaultStationLabel(s));
                EcritureIni(oldSysteme, stSection, "Lib", label);
                EcritureIni(oldSysteme, stSection, "Actif", "1");
                for (const auto& type : kSoundTypeTable) {
                    std::string key = std::string(type.key) + ZeroPad(s, 2);
                    EcritureIni(oldSysteme, "Base_01", key,
                                LectureIni(oldSysteme, oldSection, key, type.defaultFolder));
                }
                std::string stationKey =
                    ZeroPad(s, 3) + "_" + (unc ? "Repertoire_Station_UNC" : "Repertoire_Station");
                EcritureIni(oldSysteme, stSection, "Dossier_Station",
                            LectureIni(oldSysteme, oldSection, stationKey, ""));
            }
        }
        return 0;
    });
}

void InitGeneralDossierConfigBases() {
    const std::string& file = gSite.configFile;
    gSite.name = LectureIni(file, "Site", "Lib", "");
    gSite.active = ReadInt(LectureIni(file, "Site", "Actif", "1"), 1) != 0;
    gSite.baseCount = Clamp(ReadInt(LectureIni(file, "Site", "NbBase", "1"), 1), 1, kMaxBases);
    gSite.currentBase =
        Clamp(ReadInt(LectureIni(file, "Site", "NoBase", "1"), 1), 1, gSite.baseCount);
}

std::string DetermineDossierConfig_Bases_Libelle(int base) {
    if (base < 0 || base >= static_cast<int>(gSite.bases.size())) return DefaultBaseLabel(base);
    return LectureIni(gSite.bases[base].SystemeIni(), "Base_01", "Lib", gSite.bases[base].label);
}

SiteInitResult InitGeneralSite() {
    return Guarded("InitGeneralSite:Lib_Initialisation", SiteInitResult::Ok, [] {
        if (gSite.configFile.empty()) DetermineFichierConfig();
        InitGeneralDossierConfigBases();
        const std::string& file = gSite.configFile;
        gSite.bases.assign(gSite.baseCount, BaseConfig{});
        for (int b = 0; b < gSite.baseCount; ++b) {
            BaseConfig& base = gSite.bases[b];
            const std::string section = BaseSection(b);
            auto key = [&](const char* name, const char* fallback) {
                return LectureIni(file, section, name, fallback);
            };
            // A folder key that is there but blank (a carried-over "Dossier_Local=") takes the
            // default too: an empty folder would be the directory the program started in.
            auto folder = [&](const char* name, const std::string& fallback) {
                return ConfiguredFolder(LectureIniDossier(file, section, name, fallback));
            };
            base.label = key("Lib", DefaultBaseLabel(b).c_str());
            base.active = ReadInt(key("Actif", "0"), 0) != 0;
            base.stationCount = Clamp(ReadInt(key("NbStation", "1"), 1), 1, kMaxStations);
            base.logFolder = folder("Dossier_Log", "C:\\AudioLog\\");
            base.localFolder = folder("Dossier_Local", "C:\\Brennick\\Kavella\\Settings\\_Local\\");
            base.sharedFolder = folder("Dossier_Shared", "C:\\Brennick\\Kavella\\Shared\\");
            base.dataFolder = folder("Dossier_Data", "C:\\KV_Data\\");
            std::string data = base.dataFolder.substr(0, base.dataFolder.size() - 1);
            base.dataBackupFolder = ExistingCase(data + "_Backup/");
            base.configFolder =
                folder("Dossier_Config_Global", gSite.settingsFolder + BaseSection(b) + "/");
            base.radioIdentity = key("Id_Radio", base.label.c_str());
            // Another system's folder: taken as it is written, never created here.
            base.ninSightFolder = NormaliseFolder(key("Dossier_NinSight", ""));
            ReadStations(base);

            // The database is there when its parameter file is.
            while (true) {
                std::string marker = ExistingCase(base.dataFolder + kDatabaseMarkerFile);
                base.databasePresent = FileExists(marker);
                if (base.databasePresent) break;
                MsgAnswer answer = AffMsg(
                    "Impossible de trouver la base de données pour la base: " + base.label +
                        "\r\n\r\nFichier '" + marker + "' non trouvé\r\n\r\n" +
                        "Voulez-vous rechercher manuellement la localisation de la base de données "
                        "Kavella ?",
                    MsgButtons::YesNoCancel, MsgIcon::Question);
                if (answer == MsgAnswer::Cancel) return SiteInitResult::Cancelled;
                if (answer != MsgAnswer::Yes) break;
                std::string chosen = AppDialogs().SelectFolder(
                    "Localisation de la base de données: " + base.label, base.dataFolder);
                if (chosen == "*") continue;
                std::string folder = NormaliseFolder(chosen);
                if (FileExists(ExistingCase(folder + kDatabaseMarkerFile))) {
                    EcritureIni(file, section, "Dossier_Data", folder);
                    base.dataFolder = folder;
                    base.dataBackupFolder =
                        ExistingCase(folder.substr(0, folder.size() - 1) + "_Backup/");
                }
            }
        }
        // The log goes to the current base's log folder from now on.
        const BaseConfig& current = gSite.bases[gSite.currentBase - 1];
        LogConfig().folder = current.logFolder;
        LogConfig().identity.baseNumber = gSite.currentBase;
        LogConfig().identity.radioIdentity = current.radioIdentity;
        return SiteInitResult::Ok;
    });
}

}  // namespace toverin
