#include "tests/support/DiskDamage.h"

#include <sqlite3.h>

#include <fstream>

namespace toverin::testing {

// Pages of one table or index in the order of its b-tree, leaves only, with their cell counts.
std::vector<std::pair<int, int>> LeafPages(const std::string& path, const std::string& name) {
    std::vector<std::pair<int, int>> pages;
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw,
                       "SELECT pageno, ncell FROM dbstat WHERE name = ?1 AND pagetype = 'leaf' "
                       "ORDER BY path",
                       -1, &stmt, nullptr);
    sqlite3_bind_text(stmt, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    while (sqlite3_step(stmt) == SQLITE_ROW)
        pages.emplace_back(sqlite3_column_int(stmt, 0), sqlite3_column_int(stmt, 1));
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return pages;
}

void Scribble(const std::string& path, int page) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(page - 1) * 4096);
    std::string garbage(4096, '\xab');
    file.write(garbage.data(), garbage.size());
}

}  // namespace toverin::testing
