#include "app/Initialisation.h"

#include <cstdlib>
#include <filesystem>

#include "app/Errors.h"
#include "app/EventPump.h"
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

// The two document types of the suite's record files, as the shared MIME database reads them.
const char* kMimeXml =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
    "  <mime-type type=\"application/x-kavella-data\">\n"
    "    <comment>KV Data</comment>\n"
    "    <icon name=\"kavella-toverin\"/>\n"
    "    <glob pattern=\"*.bt6\"/>\n"
    "  </mime-type>\n"
    "  <mime-type type=\"application/x-kavella-backup\">\n"
    "    <comment>KV Backup Data</comment>\n"
    "    <icon name=\"kavella-toverin\"/>\n"
    "    <glob pattern=\"*.btr\"/>\n"
    "  </mime-type>\n"
    "</mime-info>\n";

// The icon of both types and of the opener: the tray's disc with its "T".
const char* kIconSvg =
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"32\" height=\"32\" viewBox=\"0 0 32 32\">"
    "<circle cx=\"16\" cy=\"16\" r=\"15\" fill=\"#1f3a5a\"/>"
    "<text x=\"16\" y=\"23\" font-family=\"DejaVu Sans,sans-serif\" font-size=\"20\" "
    "font-weight=\"bold\" fill=\"#ffffff\" text-anchor=\"middle\">T</text></svg>\n";

// The program beside this one that opens a record file: it shows the file's description and
// record count in a terminal.
std::string OpenCommand() {
    std::error_code ec;
    fs::path self = fs::read_symlink("/proc/self/exe", ec);
    fs::path ctl = self.parent_path() / "toverinctl";
    std::string program = !ec && fs::exists(ctl, ec) ? ctl.string() : std::string("toverinctl");
    // Desktop entry quoting: the path between double quotes, with its own quotes escaped.
    std::string quoted = "\"";
    for (char c : program) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\" file stat %f";
}

std::string DesktopEntry() {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Kavella: Toverin\n"
           "Comment=Fichiers de données de la suite Kavella\n"
           "Icon=kavella-toverin\n"
           "Exec=" +
           OpenCommand() +
           "\n"
           "Terminal=true\n"
           "NoDisplay=true\n"
           "MimeType=application/x-kavella-data;application/x-kavella-backup;\n";
}

// Writes `content` to `file` unless it already holds it; true when something was written.
bool WriteWhenChanged(const fs::path& file, const std::string& content) {
    std::error_code ec;
    if (fs::exists(file, ec) && ReadWholeFile(file.string()) == content) return false;
    if (!WriteFileAtomically(file.string(), content))
        throw AppError(75, "Ecriture impossible: " + file.string());
    TraceLog("InitGeneralSysteme: Written: " + file.string());
    return true;
}

void RunAndWait(const std::string& program, const fs::path& folder) {
    long pid = ExecuterProgrammeExterne(program, "\"" + folder.string() + "\"");
    if (pid) AttenteFinProcessusExterne(pid);
}

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
        // Written only when missing or different, as the classes are written only when their
        // content type changed; then the desktop is told that the associations changed.
        bool mime = WriteWhenChanged(dataHome / "mime/packages/kavella-toverin.xml", kMimeXml);
        bool icon = WriteWhenChanged(dataHome / "icons/hicolor/scalable/apps/kavella-toverin.svg",
                                     kIconSvg);
        bool desktop =
            WriteWhenChanged(dataHome / "applications/kavella-toverin.desktop", DesktopEntry());
        if (mime) RunAndWait("update-mime-database", dataHome / "mime");
        if (desktop) RunAndWait("update-desktop-database", dataHome / "applications");
        (void)icon;
        return 0;
    });
}

void InitGeneralLook() {
    // The look key only colours windows; reading it creates it as the suite's programs expect.
    GetRegValue(kHkeyCurrentUser, kRegLook, "Theme", "");
}

InitResult InitApplication(const std::function<void(const std::string&)>& announce,
                           const std::string& commandLine) {
    const std::string procedure = "InitApplication:Lib_Initialisation";
    SiteInitResult site = SiteInitResult::Ok;
    // Each step is guarded on its own: one that fails is reported with its mark and the next one
    // still runs.
    struct Step {
        const char* announcement;
        std::function<void()> run;
    };
    const Step steps[] = {
        {"Init: DetermineVersionWindows", DetermineVersionWindows},
        {"Init: DetermineChaineDeCommande", [&] { DetermineChaineDeCommande(commandLine); }},
        {"Init: DetermineDossierSettingsApplication",
         [] {
             DetermineDossierSettings();
             DetermineDossierSettingsApplication();
             DetermineDossierSkins();
         }},
        {"Init: InitGeneralSysteme", InitGeneralSysteme},
        {"Init: InitGeneralLook", InitGeneralLook},
        {"Init: LookFenetre", [] {}},
        {"Init: InitGeneralDossierConfigBases",
         [] {
             DetermineFichierConfig();
             InitGeneralDossierConfigBases();
         }},
        {"Init: InitGeneralSite", [&] { site = InitGeneralSite(); }},
    };
    char mark = 'A';
    for (const Step& step : steps) {
        if (TerminationRequested()) return InitResult::Terminated;
        Guarded(procedure + ":" + mark++, 0, [&] {
            announce(step.announcement);
            step.run();
            return 0;
        });
    }
    if (TerminationRequested()) return InitResult::Terminated;
    return site == SiteInitResult::Cancelled ? InitResult::Cancelled : InitResult::Ok;
}

}  // namespace toverin
