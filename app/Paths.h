// Paths as the suite writes them (`C:\KV_Data\`, `\\SERVER\Share\`) made native. Both separators
// are accepted everywhere; a drive letter maps through the drive table (by default every drive is
// a folder under the suite root, so a whole site can live in one folder); a UNC path that names a
// share of this machine becomes its local path.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace toverin {

inline constexpr char kSep = '/';

// The suite root, always ending with a separator.
const std::string& SuiteRoot();
void SetSuiteRoot(const std::string& root);

// Folder a drive letter maps to (ending with a separator).
std::string DriveFolder(char letter);
void SetDriveFolder(char letter, const std::string& folder);
void ClearDriveTable();
// Reads "[Drives]" of the given ini file: one key per letter, the folder as value.
void LoadDriveTable(const std::string& iniFile);

// The native form of a path written in any of the suite's forms. Relative paths stay relative.
// The parts of the path that exist on disk in another case take the case they have there.
std::string NativePath(std::string_view path);
// `path` with each part that is missing as written replaced by the one entry of its folder with
// the same name in another case ("FRAD000.BT6" for "FRAD000.bt6", "KV_DATA/" for "KV_Data/"), as
// Windows finds them; parts with no such entry, and what follows them, stay as written. A site
// copied from Windows keeps the case its files were given there.
std::string ExistingCase(std::string_view path);
// NativePath with exactly one trailing separator; empty stays empty.
std::string NormaliseFolder(std::string_view folder);
// folder + name, with one separator between them.
std::string JoinPath(std::string_view folder, std::string_view name);
std::string FileNameOf(std::string_view path);
std::string FolderOf(std::string_view path);  // with a trailing separator
bool FileExists(const std::string& path);
bool FolderExists(const std::string& path);
// Anything at all at `path` (a file, a folder, a link).
bool PathExists(const std::string& path);

// Shares of this machine, for the UNC conversion.
struct Share {
    std::string name;       // the share's name ("KV_Data"), or "" for an NFS export
    std::string localPath;  // its folder
};
std::vector<Share> LocalShares();
// Files the share list is read from (tests point them elsewhere).
void SetShareSources(const std::string& sambaConfig, const std::string& nfsExports);

// The local path of a UNC path naming a share of this machine, or "" when it names none.
std::string LocalPathOfUnc(std::string_view unc);
// The logged conversion: a UNC path of a local share becomes its local path; anything else is
// returned unchanged.
std::string ChangeUNCFolder2LocalFolder(const std::string& path);

}  // namespace toverin
