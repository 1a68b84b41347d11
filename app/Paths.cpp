#include "app/Paths.h"

#include <unistd.h>

#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/Ini.h"
#include "app/Log.h"
#include "app/Text.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

std::string gRoot = "/";
std::array<std::string, 26> gDrives;
std::string gSambaConfig = "/etc/samba/smb.conf";
std::string gNfsExports = "/etc/exports";

std::string Slashes(std::string_view path) {
    return ReplaceAll(path, "\\", "/");
}

bool IsThisMachine(const std::string& host) {
    std::string h = UpperAscii(host);
    if (h == "LOCALHOST" || h == "127.0.0.1" || h == ".") return true;
    std::string me = UpperAscii(ComputerName());
    size_t dot = me.find('.');
    return h == me || (dot != std::string::npos && h == me.substr(0, dot)) ||
           (h.find('.') != std::string::npos && h.substr(0, h.find('.')) == me);
}

}  // namespace

const std::string& SuiteRoot() {
    return gRoot;
}

void SetSuiteRoot(const std::string& root) {
    std::string r = Slashes(root);
    if (r.empty()) r = ".";
    if (r.back() != kSep) r.push_back(kSep);
    gRoot = r;
}

std::string DriveFolder(char letter) {
    int i = std::toupper(static_cast<unsigned char>(letter)) - 'A';
    if (i < 0 || i >= 26) return gRoot;
    if (!gDrives[i].empty()) return gDrives[i];
    return gRoot + static_cast<char>('A' + i) + kSep;
}

void SetDriveFolder(char letter, const std::string& folder) {
    int i = std::toupper(static_cast<unsigned char>(letter)) - 'A';
    if (i < 0 || i >= 26) return;
    std::string f = Slashes(folder);
    if (!f.empty() && f.back() != kSep) f.push_back(kSep);
    gDrives[i] = f;
}

void ClearDriveTable() {
    gDrives.fill("");
}

void LoadDriveTable(const std::string& iniFile) {
    IniDocument doc;
    if (!IniDocument::Load(iniFile, doc)) return;
    for (const auto& key : doc.Keys("Drives")) {
        std::string value;
        if (key.size() == 1 && std::isalpha(static_cast<unsigned char>(key[0])) &&
            doc.Get("Drives", key, value) && !Trim(value).empty())
            SetDriveFolder(key[0], Trim(value));
    }
}

std::string NativePath(std::string_view path) {
    std::string p = Trim(path);
    if (p.size() >= 2 && (p[0] == '\\' || p[0] == '/') && (p[1] == '\\' || p[1] == '/')) {
        std::string local = LocalPathOfUnc(p);
        return local.empty() ? Slashes(p) : ExistingCase(local);
    }
    p = Slashes(p);
    if (p.size() >= 2 && std::isalpha(static_cast<unsigned char>(p[0])) && p[1] == ':') {
        std::string rest = p.substr(2);
        while (!rest.empty() && rest.front() == kSep) rest.erase(0, 1);
        return ExistingCase(DriveFolder(p[0]) + rest);
    }
    return ExistingCase(p);
}

std::string ExistingCase(std::string_view path) {
    std::string p(path);
    if (p.empty() || PathExists(p)) return p;
    std::vector<std::string> parts;
    for (size_t start = 0; start <= p.size();) {
        size_t slash = p.find(kSep, start);
        if (slash == std::string::npos) slash = p.size();
        if (slash > start) parts.push_back(p.substr(start, slash - start));
        start = slash + 1;
    }
    std::string resolved = p.front() == kSep ? std::string(1, kSep) : std::string();
    size_t i = 0;
    for (; i < parts.size(); ++i) {
        std::string candidate = resolved + parts[i];
        if (!PathExists(candidate)) {
            // The entries of the folder that spell the name in another case; the first by name
            // when there are several, so the choice is always the same.
            std::string found;
            std::error_code ec;
            const std::string folder = resolved.empty() ? "." : resolved;
            for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
                std::string name = it->path().filename().string();
                if (EqualsIgnoreCaseUtf8(name, parts[i]) && (found.empty() || name < found))
                    found = name;
            }
            if (found.empty()) break;
            candidate = resolved + found;
        }
        resolved = candidate + kSep;
    }
    for (; i < parts.size(); ++i) resolved += parts[i] + kSep;
    if (p.back() != kSep && resolved.size() > 1) resolved.pop_back();
    return resolved;
}

std::string NormaliseFolder(std::string_view folder) {
    std::string p = NativePath(folder);
    if (p.empty()) return p;
    while (p.size() > 1 && p.back() == kSep && p[p.size() - 2] == kSep) p.pop_back();
    if (p.back() != kSep) p.push_back(kSep);
    return p;
}

std::string JoinPath(std::string_view folder, std::string_view name) {
    std::string f(folder);
    if (!f.empty() && f.back() != kSep && f.back() != '\\') f.push_back(kSep);
    std::string n(name);
    while (!n.empty() && (n.front() == kSep || n.front() == '\\')) n.erase(0, 1);
    return f + n;
}

std::string FileNameOf(std::string_view path) {
    std::string p = Slashes(path);
    size_t slash = p.find_last_of(kSep);
    return slash == std::string::npos ? p : p.substr(slash + 1);
}

std::string FolderOf(std::string_view path) {
    std::string p = Slashes(path);
    size_t slash = p.find_last_of(kSep);
    return slash == std::string::npos ? std::string() : p.substr(0, slash + 1);
}

bool FileExists(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::is_regular_file(path, ec);
}

bool PathExists(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::symlink_status(path, ec).type() != fs::file_type::not_found && !ec;
}

bool FolderExists(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::is_directory(path, ec);
}

void SetShareSources(const std::string& sambaConfig, const std::string& nfsExports) {
    gSambaConfig = sambaConfig;
    gNfsExports = nfsExports;
}

std::vector<Share> LocalShares() {
    std::vector<Share> shares;
    {
        std::ifstream in(gSambaConfig);
        std::string line, section;
        while (std::getline(in, line)) {
            std::string t = Trim(line);
            if (t.empty() || t[0] == '#' || t[0] == ';') continue;
            if (t.front() == '[' && t.back() == ']') {
                section = Trim(t.substr(1, t.size() - 2));
                continue;
            }
            size_t eq = t.find('=');
            if (eq == std::string::npos || EqualsIgnoreCase(section, "global")) continue;
            if (EqualsIgnoreCase(Trim(t.substr(0, eq)), "path"))
                shares.push_back({section, NormaliseFolder(Trim(t.substr(eq + 1)))});
        }
    }
    {
        std::ifstream in(gNfsExports);
        std::string line;
        while (std::getline(in, line)) {
            std::string t = Trim(line);
            if (t.empty() || t[0] == '#') continue;
            std::istringstream words(t);
            std::string path;
            words >> path;
            if (!path.empty() && path[0] == '/') shares.push_back({"", NormaliseFolder(path)});
        }
    }
    return shares;
}

std::string LocalPathOfUnc(std::string_view unc) {
    std::string p = Slashes(unc);
    if (!StartsWith(p, "//")) return {};
    p = p.substr(2);
    size_t slash = p.find(kSep);
    if (slash == std::string::npos) return {};
    std::string host = p.substr(0, slash);
    std::string rest = p.substr(slash + 1);  // share + path
    if (!IsThisMachine(host)) return {};
    std::string shareName = rest.substr(0, rest.find(kSep));
    std::string after = rest.size() > shareName.size() ? rest.substr(shareName.size() + 1) : "";
    for (const auto& share : LocalShares()) {
        if (!share.name.empty() && EqualsIgnoreCase(share.name, shareName))
            return share.localPath + after;
        // An NFS export is named by its path: \\host\srv\kavella is /srv/kavella.
        if (share.name.empty() &&
            StartsWith(UpperAscii("/" + rest + "/"), UpperAscii(share.localPath)))
            return share.localPath + ("/" + rest).substr(share.localPath.size());
    }
    return {};
}

std::string ChangeUNCFolder2LocalFolder(const std::string& path) {
    std::string list;
    for (const auto& share : LocalShares())
        list += (share.name.empty() ? share.localPath : share.name + "=" + share.localPath) + "; ";
    TraceLog("Shared Paths List " + list);
    TraceLog("UNC Path to Change: " + path);
    std::string local = LocalPathOfUnc(path);
    if (local.empty()) return path;
    TraceLog(": UNC: Local Path found: " + local);
    TraceLog(": UNC: Path change from: " + path + " to: " + local);
    return local;
}

}  // namespace toverin
