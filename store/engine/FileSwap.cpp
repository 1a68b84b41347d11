#include "store/engine/FileSwap.h"

#include <filesystem>

#include "store/engine/Btrieve.h"
#include "store/engine/Sqlite.h"

namespace toverin::engine {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

}  // namespace

std::vector<std::string> CompanionFiles(const std::string& path) {
    std::vector<std::string> files;
    for (const char* suffix : kCompanions) files.push_back(path + suffix);
    return files;
}

void RemoveCompanions(const std::string& path) {
    std::error_code ec;
    for (const char* suffix : kCompanions) fs::remove(path + suffix, ec);
}

int16_t CheckReplaceable(const std::string& path) {
    std::error_code ec;
    const fs::file_status status = fs::symlink_status(path, ec);
    if (!fs::exists(status)) return btr::kSuccess;
    if (!fs::is_regular_file(status)) return btr::kInvalidFileName;
    try {
        // Leaving WAL needs every other connection gone, and an exclusive transaction needs no
        // other reader or writer: either failing means another process uses the file.
        Database old(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
        if (old.QueryText("PRAGMA journal_mode=DELETE") != "delete") return btr::kFileInUseCreate;
        old.Exec("BEGIN EXCLUSIVE");
        old.Exec("COMMIT");
    } catch (const SqliteError& e) {
        if (e.primary() == SQLITE_BUSY || e.primary() == SQLITE_LOCKED)
            return btr::kFileInUseCreate;
        // Anything else is not one of our files (or is damaged): it is simply replaced.
    }
    return btr::kSuccess;
}

int16_t ReplaceFile(const std::string& finished, const std::string& target, bool checkUse,
                    int* systemError) {
    if (systemError) *systemError = 0;
    if (checkUse) {
        if (int16_t status = CheckReplaceable(target); status != btr::kSuccess) return status;
    } else if (std::error_code ec; fs::exists(fs::symlink_status(target, ec)) &&
                                   !fs::is_regular_file(fs::symlink_status(target, ec))) {
        return btr::kInvalidFileName;
    }
    RemoveCompanions(target);
    std::error_code ec;
    fs::rename(finished, target, ec);
    if (ec) {
        if (systemError) *systemError = ec.value();
        return btr::kIoError;
    }
    return btr::kSuccess;
}

void RemoveUnfinished(const std::string& path) {
    std::error_code ec;
    fs::remove(path, ec);
    fs::remove(path + ".creating", ec);
    RemoveCompanions(path);
}

}  // namespace toverin::engine
