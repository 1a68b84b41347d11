#include "app/Initialisation.h"

#include <cstdlib>
#include <filesystem>

#include "app/Errors.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Registry.h"
#include "app/Startup.h"
#include "app/Text.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

SystemInfo gSystem;

const char* kMimeXml =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
    "  <mime-type type=\"application/x-kavella-data\">\n"
    "    <comment>KV Data</comment>\n"
    "    <glob pattern=\"*.bt6\"/>\n"
    "  </mime-type>\n"
    "  <mime-type type=\"application/x-kavella-backup\">\n"
    "    <comment>KV Backup Data</comment>\n"
    "    <glob pattern=\"*.btr\"/>\n"
    "  </mime-type>\n"
    "</mime-info>\n";

}  // namespace

std::string DetermineSuiteRoot(const std::string& given, const std::string& programFolder) {
    if (!Trim(given).empty()) return NormaliseFolder(given);
    if (const char* env = std::getenv("TOVERIN_ROOT"); env && *env) return NormaliseFolder(env);
    if (!programFolder.empty() && FolderExists(JoinPath(programFolder, "Settings")))
        return NormaliseFolder(programFolder);
    const char* home = std::getenv("HOME");
    return NormaliseFolder(std::string(home && *home ? home : "/tmp") + "/Kavella");
}

SystemInfo& System() {
    return gSystem;
}

void DetermineVersionWindows() {
    gSystem.operatingSystem = OperatingSystemDisplayString();
    gSystem.themeActive =
        Trim(GetRegValue(kHkeyCurrentUser,
                         "Software\\Microsoft\\Windows\\CurrentVersion\\ThemeManager",
                         "ThemeActive", "1")) != "0";
}

void InitGeneralSysteme() {
    Guarded("InitGeneralSysteme:Lib_Initialisation", 0, [] {
        fs::path dataHome;
        if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) {
            dataHome = xdg;
        } else if (const char* home = std::getenv("HOME"); home && *home) {
            dataHome = fs::path(home) / ".local/share";
        } else {
            return 0;
        }
        fs::path file = dataHome / "mime/packages/kavella-toverin.xml";
        std::error_code ec;
        if (fs::exists(file, ec) && ReadWholeFile(file.string()) == kMimeXml) return 0;
        if (!WriteFileAtomically(file.string(), kMimeXml)) return 0;
        // Tell the desktop that the associations changed.
        long pid = ExecuterProgrammeExterne("update-mime-database", (dataHome / "mime").string());
        if (pid) AttenteFinProcessusExterne(pid);
        return 0;
    });
}

void InitGeneralLook() {
    // The look key only colours windows; reading it creates it as the suite's programs expect.
    GetRegValue(kHkeyCurrentUser, kRegLook, "Theme", "");
}

SiteInitResult InitApplication(const std::function<void(const std::string&)>& announce,
                               const std::string& commandLine) {
    return Guarded("InitApplication:Lib_Initialisation", SiteInitResult::Ok, [&] {
        announce("Init: DetermineVersionWindows");
        DetermineVersionWindows();
        announce("Init: DetermineChaineDeCommande");
        DetermineChaineDeCommande(commandLine);
        announce("Init: DetermineDossierSettingsApplication");
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
        DetermineDossierSkins();
        announce("Init: InitGeneralSysteme");
        InitGeneralSysteme();
        announce("Init: InitGeneralLook");
        InitGeneralLook();
        announce("Init: LookFenetre");
        announce("Init: InitGeneralDossierConfigBases");
        DetermineFichierConfig();
        InitGeneralDossierConfigBases();
        announce("Init: InitGeneralSite");
        return InitGeneralSite();
    });
}

}  // namespace toverin
