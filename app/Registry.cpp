#include "app/Registry.h"

#include <cstdlib>
#include <filesystem>

#include "app/Ini.h"
#include "app/Text.h"

namespace toverin {
namespace {

std::string gOverride;

std::string Section(const std::string& root, const std::string& keyPath) {
    std::string path = ReplaceAll(keyPath, "/", "\\");
    while (EndsWith(path, "\\")) path.pop_back();
    return root + "\\" + path;
}

}  // namespace

std::string RegistryFile() {
    if (!gOverride.empty()) return gOverride;
    if (const char* env = std::getenv("TOVERIN_REGISTRY"); env && *env) return env;
    std::filesystem::path base;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) {
        base = xdg;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        base = std::filesystem::path(home) / ".config";
    } else {
        base = std::filesystem::temp_directory_path();
    }
    return (base / "Brennick" / "Registry.ini").string();
}

void SetRegistryFile(const std::string& file) {
    gOverride = file;
}

std::string GetRegValue(const std::string& root, const std::string& keyPath,
                        const std::string& valueName, const std::string& defaultValue) {
    IniDocument doc;
    std::string file = RegistryFile();
    if (!IniDocument::Load(file, doc)) return defaultValue;
    std::string section = Section(root, keyPath);
    std::string value;
    if (doc.Get(section, valueName, value)) return value;
    if (!doc.HasSection(section)) {
        // Opening a missing key creates it, as RegCreateKeyEx does.
        doc.EnsureSection(section);
        doc.Save(file);
    }
    return defaultValue;
}

bool SetRegValue(const std::string& root, const std::string& keyPath, const std::string& valueName,
                 const std::string& value) {
    IniDocument doc;
    std::string file = RegistryFile();
    if (!IniDocument::Load(file, doc)) return false;
    doc.Set(Section(root, keyPath), valueName, value);
    return doc.Save(file);
}

}  // namespace toverin
