// Thin RAII wrappers over the SQLite C API, used only inside the record engine. Errors surface as
// SqliteError carrying the extended result code, so that the engine can turn each into the
// status its callers expect (damage, lock, duplicate, read-only).
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace toverin::engine {

class SqliteError : public std::runtime_error {
  public:
    SqliteError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}
    int code() const { return code_; }  // extended result code
    int primary() const { return code_ & 0xff; }

  private:
    int code_;
};

struct DatabaseCloser {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StatementFinalizer {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};

// One connection. Statements prepared on it must be finalized before it closes; sqlite3_close_v2
// defers the close if one is left, so a mistake leaks rather than crashes.
class Database {
  public:
    Database() = default;
    // Opens `path` with SQLITE_OPEN_* `flags`; throws SqliteError.
    Database(const std::string& path, int flags);

    sqlite3* get() const { return db_.get(); }
    explicit operator bool() const { return db_ != nullptr; }
    void Exec(const char* sql);
    // Runs a PRAGMA or query that yields one text value (empty when it yields no row).
    std::string QueryText(const char* sql);
    int64_t QueryInt(const char* sql);
    // Makes what was written to the main database file reach the disk, whatever the
    // connection's safety level; throws SqliteError.
    void SyncMainFile();
    [[noreturn]] void Throw(int rc) const;

  private:
    std::unique_ptr<sqlite3, DatabaseCloser> db_;
};

class Statement {
  public:
    Statement() = default;
    Statement(Database& db, std::string_view sql);

    explicit operator bool() const { return stmt_ != nullptr; }
    sqlite3_stmt* get() const { return stmt_.get(); }

    // Binds a blob that must stay valid until the statement is reset (no copy).
    void BindBlob(int index, const void* data, size_t size);
    void BindInt(int index, int64_t value);
    // SQLITE_ROW -> true, SQLITE_DONE -> false; anything else throws after resetting.
    bool Step();
    void Reset() { sqlite3_reset(stmt_.get()); }
    bool Busy() const { return sqlite3_stmt_busy(stmt_.get()) != 0; }

    int64_t Int(int column) const { return sqlite3_column_int64(stmt_.get(), column); }
    std::string_view Blob(int column) const {
        const void* p = sqlite3_column_blob(stmt_.get(), column);
        int n = sqlite3_column_bytes(stmt_.get(), column);
        return {static_cast<const char*>(p), static_cast<size_t>(n)};
    }

  private:
    std::unique_ptr<sqlite3_stmt, StatementFinalizer> stmt_;
};

// Resets a statement when leaving a scope, so that one-shot statements never keep a read
// transaction open between calls.
class ResetOnExit {
  public:
    explicit ResetOnExit(Statement& s) : s_(s) {}
    ~ResetOnExit() { s_.Reset(); }
    ResetOnExit(const ResetOnExit&) = delete;
    ResetOnExit& operator=(const ResetOnExit&) = delete;

  private:
    Statement& s_;
};

}  // namespace toverin::engine
