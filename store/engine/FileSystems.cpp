#include "store/engine/FileSystems.h"

#include <array>
#include <fstream>
#include <sstream>
#include <vector>

namespace toverin::engine {

namespace {

// Mount points in mountinfo escape blanks, tabs, line feeds and backslashes as \ooo (octal).
std::string Unescape(std::string_view field) {
    std::string text;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            std::string_view digits = field.substr(i + 1, 3);
            bool octal = true;
            for (char c : digits) octal = octal && c >= '0' && c <= '7';
            if (octal) {
                text += static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 +
                                          (digits[2] - '0'));
                i += 3;
                continue;
            }
        }
        text += field[i];
    }
    return text;
}

std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> fields;
    size_t start = 0;
    while (start < line.size()) {
        size_t end = line.find(' ', start);
        if (end == std::string_view::npos) end = line.size();
        if (end > start) fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

// Whether `mountPoint` is `path` itself or one of its leading folders.
bool Contains(std::string_view mountPoint, std::string_view path) {
    if (mountPoint == "/") return !path.empty() && path.front() == '/';
    if (path.substr(0, mountPoint.size()) != mountPoint) return false;
    return path.size() == mountPoint.size() || path[mountPoint.size()] == '/';
}

}  // namespace

std::string FileSystemTypeInMountInfo(std::string_view mountInfo, std::string_view path) {
    std::string type;
    size_t best = 0;
    bool found = false;
    size_t start = 0;
    while (start < mountInfo.size()) {
        size_t end = mountInfo.find('\n', start);
        if (end == std::string_view::npos) end = mountInfo.size();
        std::vector<std::string_view> fields = Fields(mountInfo.substr(start, end - start));
        start = end + 1;
        // id parent major:minor root mount-point options [optional fields…] - type source …
        size_t separator = 6;
        while (separator < fields.size() && fields[separator] != "-") ++separator;
        if (fields.size() < 5 || separator + 1 >= fields.size()) continue;
        std::string mountPoint = Unescape(fields[4]);
        if (!Contains(mountPoint, path)) continue;
        if (!found || mountPoint.size() >= best) {
            best = mountPoint.size();
            type = std::string(fields[separator + 1]);
            found = true;
        }
    }
    return type;
}

bool IsNetworkFileSystem(std::string_view type) {
    static constexpr std::array<std::string_view, 17> kShared = {
        "nfs",  "nfs4",      "cifs", "smb3",  "smbfs",  "ncpfs", "9p",     "afs",   "ceph",
        "coda", "glusterfs", "gfs2", "ocfs2", "lustre", "davfs", "vboxsf", "vmhgfs"};
    if (type == "fuse" || type == "fuseblk" || type.substr(0, 5) == "fuse.") return true;
    for (std::string_view shared : kShared) {
        if (type == shared) return true;
    }
    return false;
}

std::string SystemFileSystemType(const std::string& path) {
#if defined(__linux__)
    std::ifstream in("/proc/self/mountinfo");
    if (!in) return {};
    std::ostringstream text;
    text << in.rdbuf();
    return FileSystemTypeInMountInfo(text.str(), path);
#else
    // Windows would ask GetDriveType for DRIVE_REMOTE; other systems are taken as local.
    (void)path;
    return {};
#endif
}

}  // namespace toverin::engine
