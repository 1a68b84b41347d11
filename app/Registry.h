// The per-user registry of the suite, kept on Linux as an ini file under the user's
// configuration folder ($XDG_CONFIG_HOME or ~/.config, "Brennick/Registry.ini"); each key path is
// a section. Keys are created when missing, as the Windows calls do.
#pragma once

#include <string>

namespace toverin {

inline constexpr const char* kHkeyCurrentUser = "HKEY_CURRENT_USER";
inline constexpr const char* kHkeyLocalMachine = "HKEY_LOCAL_MACHINE";

std::string GetRegValue(const std::string& root, const std::string& keyPath,
                        const std::string& valueName, const std::string& defaultValue = "");
bool SetRegValue(const std::string& root, const std::string& keyPath, const std::string& valueName,
                 const std::string& value);

// The file that holds the registry; tests point it elsewhere ("" restores the default).
std::string RegistryFile();
void SetRegistryFile(const std::string& file);

// The program's own keys.
inline constexpr const char* kRegToverin = "Software\\Brennick\\KV3_Toverin\\";
inline constexpr const char* kRegLook = "Software\\Brennick\\Kavella\\Look";

}  // namespace toverin
