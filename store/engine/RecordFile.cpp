#include "store/engine/RecordFile.h"

#include <atomic>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <limits>
#include <mutex>
#include <system_error>

#include "store/engine/EngineFile.h"
#include "store/engine/FileSystems.h"

namespace toverin::engine {

namespace fs = std::filesystem;

namespace {

std::atomic<bool> gSyncedWrites{true};

struct Hooks {
    std::mutex mutex;
    EngineNotice notice;
    FileSystemProbe probe;
};
Hooks& TheHooks() {
    static Hooks hooks;
    return hooks;
}

void Notice(const std::string& line) {
    Hooks& hooks = TheHooks();
    std::lock_guard<std::mutex> lock(hooks.mutex);
    if (hooks.notice) hooks.notice(line);
}

std::string FileSystemTypeOf(const std::string& path) {
    Hooks& hooks = TheHooks();
    {
        std::lock_guard<std::mutex> lock(hooks.mutex);
        if (hooks.probe) return hooks.probe(path);
    }
    return SystemFileSystemType(path);
}

// The size of one region of the log's index in shared memory, which every caller of xShmMap
// must give; the index's header, which every commit rewrites, opens the first region.
constexpr int kShmRegion = 32768;

constexpr int64_t kFormat = 1;
// Lets a reader or writer ride out another process's checkpoint or short write without failing;
// longer waits are the access layer's retry business (it waits between retries itself).
constexpr int kBusyTimeoutMs = 250;
// Accelerated writes per transaction: large enough that commits cost nothing measurable, small
// enough that a crash loses a bounded amount of a bulk copy, which is restarted anyway.
constexpr int kBatchWrites = 200000;
// Rows of a bulk load handed to SQLite by one statement: one statement per row costs about a
// quarter more per row.
constexpr int kStagedRows = 32;
constexpr const char* kNormalCache = "PRAGMA cache_size=-8192";         // 8 MiB
constexpr const char* kAcceleratedCache = "PRAGMA cache_size=-131072";  // 128 MiB, still bounded

// Whether `text` is `upper` in any case ("wal" and "WAL").
bool EqualsLower(const std::string& text, const char* upper) {
    size_t n = std::strlen(upper);
    if (text.size() != n) return false;
    for (size_t i = 0; i < n; ++i) {
        if (std::tolower(static_cast<unsigned char>(text[i])) !=
            std::tolower(static_cast<unsigned char>(upper[i])))
            return false;
    }
    return true;
}

std::string KeyColumn(int k) {
    return "k" + std::to_string(k);
}

std::string IndexSql(const KeyLayout& layout, size_t k) {
    // An index on (k) carries the row id as its last column, so duplicates come back in
    // insertion order both ways without a sort.
    return std::string(layout.keys[k].duplicates ? "CREATE INDEX" : "CREATE UNIQUE INDEX") +
           " IF NOT EXISTS records_" + KeyColumn(k) + " ON records(" + KeyColumn(k) + ");";
}

std::string SchemaSql(const KeyLayout& layout) {
    std::string sql =
        "CREATE TABLE toverin_file(format INTEGER NOT NULL, file_buf BLOB NOT NULL, "
        "flushes INTEGER NOT NULL DEFAULT 0);"
        "CREATE TABLE records(id INTEGER PRIMARY KEY, chg INTEGER NOT NULL DEFAULT 0, "
        "rec BLOB NOT NULL";
    for (size_t k = 0; k < layout.keys.size(); ++k) sql += ", " + KeyColumn(k) + " BLOB NOT NULL";
    sql += ");";
    for (size_t k = 0; k < layout.keys.size(); ++k) sql += IndexSql(layout, k);
    return sql;
}

int16_t OpenFailure(const SqliteError& e) {
    switch (e.primary()) {
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // a database without our tables
            return btr::kNotARecordFile;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return btr::kFileLocked;
        case SQLITE_CANTOPEN:
            return btr::kFileNotFound;
        default:
            return btr::kIoError;
    }
}

}  // namespace

int16_t RecordFile::Open(const std::string& path, int8_t mode, bool firstOpener,
                         std::unique_ptr<RecordFile>& out) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return btr::kFileNotFound;
    const bool logFound = fs::exists(path + "-wal", ec);
    const std::string fileSystem = FileSystemTypeOf(path);
    std::unique_ptr<RecordFile> file(new RecordFile);
    file->network_ = IsNetworkFileSystem(fileSystem);
    file->path_ = path;
    file->exclusive_ = mode == btr::kOpenExclusive;
    try {
        // Read-write when the file system allows it, read-only otherwise (SQLite decides).
        file->db_ = Database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
        sqlite3_busy_timeout(file->db_.get(), kBusyTimeoutMs);
        // Exclusive holders keep their locks for the life of the connection, which is what
        // keeps other processes out.
        if (file->exclusive_) file->db_.Exec("PRAGMA locking_mode=EXCLUSIVE");
        {
            Statement fileBuf(file->db_, "SELECT format, file_buf FROM toverin_file");
            if (!fileBuf.Step() || fileBuf.Int(0) != kFormat) return btr::kNotARecordFile;
            std::string_view bytes = fileBuf.Blob(1);
            if (KeyLayout::Parse(bytes.data(), bytes.size(), file->layout_) != btr::kSuccess)
                return btr::kNotARecordFile;
        }
        file->keys_.resize(file->layout_.keys.size());
        file->unbuildable_.assign(file->layout_.keys.size(), 0);
        file->readFalling_.assign(file->layout_.keys.size(), 0);
        file->fallingKnown_.assign(file->layout_.keys.size(), 0);
        file->standIn_.assign(file->layout_.keys.size(), 0);
        file->LoadPendingIndexes();
        file->ConfigureForMode(mode, firstOpener, logFound);
        if (file->network_) file->NoteFileSystem(mode, fileSystem);
        file->TakeCommitMark();
    } catch (const SqliteError& e) {
        return OpenFailure(e);
    }
    out = std::move(file);
    return btr::kSuccess;
}

void RecordFile::ConfigureForMode(int8_t mode, bool firstOpener, bool logFound) {
    // Before the journal and index changes below, which commit too.
    if (!SyncedWrites()) db_.Exec("PRAGMA synchronous=OFF");
    if (mode == btr::kOpenReadOnly) {
        // Reads only: the journal stays as the file has it. Reading a file in WAL makes SQLite
        // create the log and its index beside it, and the last connection to close removes
        // them; but a log found there (another process has the file open, or one that crashed
        // left it) is left as it was found: closing neither folds it into the file nor removes
        // it.
        if (logFound) sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        wal_ = db_.QueryText("PRAGMA journal_mode") == "wal";
    } else if (sqlite3_db_readonly(db_.get(), "main")) {
        wal_ = db_.QueryText("PRAGMA journal_mode") == "wal";
    } else if (mode == btr::kOpenAccelerated && firstOpener && Empty()) {
        // A bulk load into a fresh file: with a rollback journal, pages appended beyond the
        // file's original end are never journaled, so the data is written once; WAL would
        // write it twice (log, then checkpoint). Switching fails quietly while another process
        // has the file open, and the load then runs in the journal it has. A file that holds
        // records keeps its journal: its changed pages would all be journaled, and leaving WAL
        // and coming back costs a checkpoint and syncs at each open and close (a tool that
        // rewrites part of a station's files opens several of them).
        bulkJournal_ = SetJournal("TRUNCATE");
        if (bulkJournal_) DeferIndexes();
    } else {
        SetJournal(NormalJournal());
    }
    if (exclusive_) {
        db_.Exec("BEGIN EXCLUSIVE");
        db_.Exec("COMMIT");
    }
    // The compiled-in default zeroes freed space, which costs writes for nothing here.
    db_.Exec("PRAGMA secure_delete=OFF");
    db_.Exec(kNormalCache);
    ApplySync();
}

// WAL: readers never block the writer, and a commit is one append to the log. Its index lives
// in memory shared between the processes of one machine, which a network share cannot give:
// there, a rollback journal (DELETE), whose locks the share's own locking carries. Switching
// needs every other connection gone; while one stays, the file keeps the journal it has.
bool RecordFile::SetJournal(const char* mode) {
    walIndexHeader_ = nullptr;  // leaving WAL unmaps it
    std::string now;
    try {
        now = db_.QueryText((std::string("PRAGMA journal_mode=") + mode).c_str());
    } catch (const SqliteError& e) {
        if (e.primary() != SQLITE_BUSY && e.primary() != SQLITE_LOCKED) throw;
        now = db_.QueryText("PRAGMA journal_mode");  // another process holds the file
    }
    wal_ = now == "wal";
    journalSet_ = true;
    return EqualsLower(now, mode);
}

void RecordFile::NoteFileSystem(int8_t mode, const std::string& type) {
    std::string line = "File: " + path_ + " |On a network file system (" + type + "): ";
    if (!wal_)
        line += mode == btr::kOpenReadOnly ? "read-only, rollback journal"
                                           : "rollback journal instead of WAL";
    else if (mode == btr::kOpenReadOnly)
        line += "read-only in WAL, which is not safe there while another machine writes";
    else
        line += "still in WAL, another process has it open";
    Notice(line);
}

void RecordFile::Join(int8_t mode) {
    if (mode == btr::kOpenReadOnly || journalSet_ || sqlite3_db_readonly(db_.get(), "main")) return;
    // A handle that may write: the file gets its normal journal, and the log is handled at
    // close as for any writer.
    EndLiveCursors();
    sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    SetJournal(NormalJournal());
    TakeCommitMark();
}

// What another connection's commit changes. In WAL, the header of the log's index in shared
// memory (documented in SQLite's "WAL-mode file format"): every commit rewrites it, without a
// system call to read it. With a rollback journal, the data version SQLite keeps for this
// connection, which costs a read transaction. False when it cannot be read.
bool RecordFile::ReadCommitMark(CommitMark& mark) {
    mark.fill(0);
    if (wal_) {
        if (walIndexHeader_ == nullptr) {
            sqlite3_file* file = nullptr;
            if (sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
                    SQLITE_OK ||
                file == nullptr || file->pMethods == nullptr || file->pMethods->iVersion < 2 ||
                file->pMethods->xShmMap == nullptr)
                return false;
            volatile void* region = nullptr;
            int rc = file->pMethods->xShmMap(file, 0, kShmRegion, 0, &region);
            if (region == nullptr || (rc != SQLITE_OK && rc != SQLITE_READONLY)) return false;
            walIndexHeader_ = static_cast<const volatile uint64_t*>(region);
        }
        // 48 bytes, aligned (a mapping starts on a page).
        for (size_t i = 0; i < mark.size(); ++i) mark[i] = walIndexHeader_[i];
        std::atomic_thread_fence(std::memory_order_acquire);
        return true;
    }
    if (!dataVersion_) dataVersion_ = Statement(db_, "PRAGMA data_version");
    ResetOnExit reset(dataVersion_);
    if (!dataVersion_.Step()) return false;
    mark[0] = static_cast<uint64_t>(dataVersion_.Int(0));
    return true;
}

// Takes the current commit mark as the one seen. What handles read before it may be older.
void RecordFile::TakeCommitMark() {
    ++generation_;
    if (exclusive_) return;  // nobody else can commit
    // A read first, which opens the log and its index after a switch to WAL.
    db_.QueryInt("PRAGMA data_version");
    commitMarkKnown_ = ReadCommitMark(commitMark_);
}

// Notices a commit by another connection since the last call.
void RecordFile::Observe() {
    // Nobody else can commit while this connection holds the file exclusively, or keeps the
    // write lock of an open batch.
    if (exclusive_ || batchOpen_) return;
    CommitMark mark;
    bool known = ReadCommitMark(mark);
    if (known && commitMarkKnown_ && mark == commitMark_) return;
    commitMark_ = mark;
    commitMarkKnown_ = known;
    ++generation_;
    AfterOutsideChange();
}

// Another process may have built a waiting index (a normal write builds them all) and written
// rows in any order, or, in a file emptied and loaded again, dropped the indexes.
void RecordFile::AfterOutsideChange() {
    newestKnown_ = false;
    fallingKnown_.assign(layout_.keys.size(), 0);
    LoadPendingIndexes();
}

ReadPath RecordFile::BeforeRead(int key, bool mayBuild) {
    Observe();
    FlushStaged();
    if (pending_[key] && mayBuild && !unbuildable_[key]) BuildIndexForRead(key);
    ReadPath path = PathOf(key);
    if (path == ReadPath::kRowOrder && !fallingKnown_[key]) {
        readFalling_[key] = ValuesFall(key);
        fallingKnown_[key] = 1;
    } else if (path == ReadPath::kStandIn && standIn_[key] != generation_) {
        BuildStandIn(key);
    }
    return path;
}

// A key with duplicates read without its index (read-only handle, or an index that cannot be
// built): its (value, id) pairs sorted once into a temporary table of this connection, which
// stands in for the index until the records change. Temporary tables live apart from the file
// (SQLite's temporary folder), so the file is left as it is. Without it, every search would sort
// the whole file again.
void RecordFile::BuildStandIn(int key) {
    EndLiveCursors();
    const std::string k = KeyColumn(key);
    const std::string table = "temp.order_" + k;
    standIn_[key] = 0;
    db_.Exec(("DROP TABLE IF EXISTS " + table).c_str());
    db_.Exec(("CREATE TABLE " + table +
              "(k BLOB NOT NULL, id INTEGER NOT NULL, PRIMARY KEY(k, id)) WITHOUT ROWID")
                 .c_str());
    try {
        db_.Exec(("INSERT INTO " + table + " SELECT " + k + ", id FROM main.records ORDER BY " + k +
                  ", id")
                     .c_str());
    } catch (const SqliteError&) {
        sqlite3_exec(db_.get(), ("DROP TABLE IF EXISTS " + table).c_str(), nullptr, nullptr,
                     nullptr);
        throw;
    }
    standIn_[key] = generation_;
}

void SetSyncedWrites(bool on) {
    gSyncedWrites = on;
}

bool SyncedWrites() {
    return gSyncedWrites;
}

void SetEngineNotice(EngineNotice notice) {
    std::lock_guard<std::mutex> lock(TheHooks().mutex);
    TheHooks().notice = std::move(notice);
}

void SetFileSystemProbe(FileSystemProbe probe) {
    std::lock_guard<std::mutex> lock(TheHooks().mutex);
    TheHooks().probe = std::move(probe);
}

std::string IntegrityReport(const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return "no such file";
    const bool logFound = fs::exists(path + "-wal", ec);
    try {
        // As a read-only open: read-write for SQLite, so that the last connection to close
        // removes the log it made; a log found there is left as it was.
        Database db(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
        sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);
        if (logFound) sqlite3_db_config(db.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        Statement check(db, "PRAGMA integrity_check");
        std::string report;
        while (check.Step()) {
            const unsigned char* text = sqlite3_column_text(check.get(), 0);
            if (!report.empty()) report += "; ";
            report += text ? reinterpret_cast<const char*>(text) : "";
        }
        return report;
    } catch (const SqliteError& e) {
        return e.what();
    }
}

void RecordFile::ApplySync() {
    // Normal mode: FULL syncs the log at every commit, so an acknowledged write survives a
    // crash of the process and of the machine. Accelerated writes are synced once, when the
    // last accelerated handle closes (see CommitBatch).
    if (bulkJournal_ || !SyncedWrites())
        db_.Exec("PRAGMA synchronous=OFF");
    else if (acceleratedHandles_ > 0)
        db_.Exec("PRAGMA synchronous=NORMAL");  // in WAL: syncs at checkpoints only
    else
        db_.Exec("PRAGMA synchronous=FULL");
}

int16_t RecordFile::Create(const std::string& path, const KeyLayout& layout) {
    std::error_code ec;
    fs::path target(path);
    fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    if (!fs::is_directory(folder, ec)) return btr::kFileNotFound;
    if (fs::exists(target, ec)) {
        if (fs::is_directory(target, ec)) return btr::kInvalidFileName;
        try {
            // Leaving WAL needs every other connection gone, and an exclusive transaction needs
            // no other reader or writer: either failing means another process uses the file.
            Database old(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
            if (old.QueryText("PRAGMA journal_mode=DELETE") != "delete")
                return btr::kFileInUseCreate;
            old.Exec("BEGIN EXCLUSIVE");
            old.Exec("COMMIT");
        } catch (const SqliteError& e) {
            if (e.primary() == SQLITE_BUSY || e.primary() == SQLITE_LOCKED)
                return btr::kFileInUseCreate;
            // Anything else is not one of our files (or is damaged): it is simply replaced.
        }
    }
    // Built aside and renamed into place, so that a crash leaves the old file or the new one.
    std::string building = path + ".creating";
    fs::remove(building, ec);
    try {
        Database db(building, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
        db.Exec("PRAGMA page_size=4096");
        // Nothing to roll back to: a file that fails half-built is removed. The commit still
        // syncs it once, before the rename makes it the file (unless writes are not synced).
        db.QueryText("PRAGMA journal_mode=OFF");
        if (!SyncedWrites()) db.Exec("PRAGMA synchronous=OFF");
        db.Exec("BEGIN");
        db.Exec(SchemaSql(layout).c_str());
        Statement insert(db, "INSERT INTO toverin_file(format, file_buf) VALUES(?1, ?2)");
        insert.BindInt(1, kFormat);
        insert.BindBlob(2, &layout.fileBuf, sizeof layout.fileBuf);
        insert.Step();
        insert = Statement();
        db.Exec("COMMIT");
    } catch (const SqliteError& e) {
        fs::remove(building, ec);
        return e.primary() == SQLITE_FULL ? btr::kDiskFull : btr::kIoError;
    }
    // A log or journal left by the old file must never be applied to the new one.
    for (const char* suffix : {"-wal", "-shm", "-journal"}) fs::remove(path + suffix, ec);
    fs::rename(building, target, ec);
    if (ec) {
        fs::remove(building, ec);
        return btr::kIoError;
    }
    return btr::kSuccess;
}

RecordFile::~RecordFile() {
    try {
        if (acceleratedHandles_ > 0 || batchOpen_) {
            acceleratedHandles_ = 0;
            LeaveAcceleratedMode();
        }
    } catch (const SqliteError&) {
        // Closing cannot report; the last committed state is what the file keeps.
    }
}

Statement RecordFile::PrepareCursor(int key, CursorKind kind) {
    std::string k = KeyColumn(key);
    // Reads by a key read through its stand-in table take the value and id from there, and the
    // rest of the row from the records by id (CROSS JOIN keeps that order of the loops).
    const bool standIn = PathOf(key) == ReadPath::kStandIn && kind != CursorKind::kRowsUpFrom &&
                         kind != CursorKind::kRowsDownFrom && kind != CursorKind::kRowAt;
    std::string from = "records", id = "id", value = k, rest = "chg, rec";
    if (standIn) {
        from = "temp.order_" + k + " AS o";
        if (!ReadsIndexAlone(kind)) from += " CROSS JOIN main.records AS r ON r.id = o.id";
        id = "o.id";
        value = "o.k";
        rest = "r.chg, r.rec";
    }
    std::string sql = "SELECT " + id + ", " + (ReadsIndexAlone(kind) ? "NULL, NULL" : rest) + ", " +
                      value + " FROM " + from + " WHERE ";
    switch (kind) {
        case CursorKind::kAfterInGroup:
            sql += value + " = ?1 AND " + id + " > ?2 ORDER BY " + id;
            break;
        case CursorKind::kGreater:
            sql += value + " > ?1 ORDER BY " + value + ", " + id;
            break;
        case CursorKind::kGreaterEqual:
            sql += value + " >= ?1 ORDER BY " + value + ", " + id;
            break;
        case CursorKind::kBeforeInGroup:
            sql += value + " = ?1 AND " + id + " < ?2 ORDER BY " + id + " DESC";
            break;
        case CursorKind::kLess:
            sql += value + " < ?1 ORDER BY " + value + " DESC, " + id + " DESC";
            break;
        case CursorKind::kLessEqual:
            sql += value + " <= ?1 ORDER BY " + value + " DESC, " + id + " DESC";
            break;
        case CursorKind::kRowsUpFrom:
            sql += "id >= ?1 ORDER BY id";
            break;
        case CursorKind::kRowsDownFrom:
            // Bound to the first id wanted, the search lands on that row's page, never on the
            // page after it, which may be damaged.
            sql += "id <= ?1 ORDER BY id DESC";
            break;
        case CursorKind::kRowAt:
            sql += "id = ?1";
            break;
    }
    return Statement(db_, sql);
}

void RecordFile::EndLiveCursors() {
    if (!liveCursors_) return;
    for (sqlite3_stmt* s = sqlite3_next_stmt(db_.get(), nullptr); s != nullptr;
         s = sqlite3_next_stmt(db_.get(), s)) {
        if (sqlite3_stmt_busy(s)) sqlite3_reset(s);
    }
    liveCursors_ = false;
    ++resets_;
}

void RecordFile::BeginWrite(bool accelerated) {
    // A stepping statement holds a read snapshot; a write must start from the newest state.
    EndLiveCursors();
    ++generation_;
    bool began = false;
    if (!batchOpen_ && (accelerated || acceleratedHandles_ > 0)) {
        // Normal writes also go through a transaction while accelerated handles share the
        // connection, so that they can be committed with a sync of their own.
        db_.Exec("BEGIN IMMEDIATE");
        batchOpen_ = true;
        batchWrites_ = 0;
        began = true;
    }
    if (began || !batchOpen_) {
        // Another process may have built an index, or a rolled-back batch undone one of ours.
        LoadPendingIndexes();
        newestKnown_ = false;
    }
    // A normal write keeps every index up to date, so the file must have them all first.
    if (!accelerated) BuildPendingIndexes();
}

void RecordFile::EndWrite(bool accelerated) {
    if (batchOpen_ && sqlite3_get_autocommit(db_.get())) LoseBatch();  // rolled back
    if (!batchOpen_) return;
    if (!accelerated)
        CommitBatch(true);
    else if (++batchWrites_ >= kBatchWrites)
        CommitBatch(false);
}

void RecordFile::CommitBatch(bool durable) {
    if (batchOpen_) {
        FlushStaged();
        try {
            db_.Exec("COMMIT");
        } catch (const SqliteError&) {
            if (sqlite3_get_autocommit(db_.get())) LoseBatch();
            throw;
        }
        batchOpen_ = false;
        batchWrites_ = 0;
        unsynced_ = true;
    }
    if (!durable || !unsynced_ || !SyncedWrites()) return;
    // The safety level cannot change inside a transaction, and a commit syncs only when it
    // writes: a small write committed with FULL syncs the file, which covers every batch
    // committed before it without a sync.
    db_.Exec("PRAGMA synchronous=FULL");
    db_.Exec("BEGIN IMMEDIATE");
    try {
        db_.Exec("UPDATE toverin_file SET flushes = flushes + 1");
        db_.Exec("COMMIT");
    } catch (const SqliteError&) {
        if (!sqlite3_get_autocommit(db_.get())) sqlite3_exec(db_.get(), "ROLLBACK", 0, 0, 0);
        throw;
    }
    unsynced_ = false;
    ApplySync();
}

void RecordFile::AddAcceleratedHandle() {
    if (acceleratedHandles_++ > 0) return;
    db_.Exec(kAcceleratedCache);
    ApplySync();
}

void RecordFile::RemoveAcceleratedHandle() {
    if (acceleratedHandles_ > 0 && --acceleratedHandles_ == 0) LeaveAcceleratedMode();
}

bool RecordFile::Empty() {
    return db_.QueryInt("SELECT count(*) FROM (SELECT 1 FROM records LIMIT 1)") == 0;
}

void RecordFile::DeferIndexes() {
    // Loading an empty file: an index is built far faster by one sort than by inserting each
    // value at its place, and a bulk copy (a backup) may never be read by most of its keys. So
    // the load writes the rows alone, and each index is built when something first needs it:
    // a read by its key, or a normal write. Unique keys keep refusing duplicates meanwhile
    // (see KeepUniqueOrder).
    if (!Empty()) return;
    // The drop is the load's first write and is made durable with it, by the sync at Close
    // (a backup opens a hundred fresh files: two syncs each here cost more than their loads).
    db_.Exec("PRAGMA synchronous=OFF");
    db_.Exec("BEGIN IMMEDIATE");
    try {
        for (size_t k = 0; k < layout_.keys.size(); ++k)
            db_.Exec(("DROP INDEX IF EXISTS records_" + KeyColumn(k)).c_str());
        db_.Exec("COMMIT");
    } catch (const SqliteError&) {
        sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    unsynced_ = true;
    LoadPendingIndexes();
}

void RecordFile::LoadPendingIndexes() {
    if (!indexes_)
        indexes_ = Statement(db_,
                             "SELECT name FROM sqlite_master WHERE type = 'index' AND "
                             "tbl_name = 'records'");
    ResetOnExit reset(indexes_);
    std::vector<char> pending(layout_.keys.size(), 1);
    while (indexes_.Step()) {
        std::string_view name = indexes_.Blob(0);
        for (size_t k = 0; k < layout_.keys.size(); ++k) {
            if (name == "records_" + KeyColumn(k)) pending[k] = 0;
        }
    }
    if (pending == pending_) return;
    pending_ = std::move(pending);
    ++pathVersion_;
    for (size_t k = 0; k < pending_.size(); ++k) {
        if (!pending_[k] && k < unbuildable_.size()) unbuildable_[k] = 0;
    }
}

int RecordFile::PendingIndexes() const {
    int count = 0;
    for (char pending : pending_) count += pending;
    return count;
}

void RecordFile::BuildIndex(size_t key) {
    FlushStaged();
    EndLiveCursors();  // an index cannot be built under a pending read of its table
    // One statement, so one transaction: a crash during the build leaves the index absent, and
    // the next use builds it again.
    db_.Exec(IndexSql(layout_, key).c_str());
    pending_[key] = 0;
    ++pathVersion_;
}

bool RecordFile::BuildIndexForRead(int key) {
    try {
        BuildIndex(static_cast<size_t>(key));
        return true;
    } catch (const SqliteError& e) {
        if (batchOpen_ && sqlite3_get_autocommit(db_.get())) {
            LoseBatch();  // the failure took the open batch with it: say so
            throw;
        }
        switch (e.primary()) {
            case SQLITE_READONLY:
            case SQLITE_BUSY:
            case SQLITE_LOCKED:
            case SQLITE_FULL:
            case SQLITE_CORRUPT:        // the rows that can still be read are read without it
                unbuildable_[key] = 1;  // not again on this open: each try waits for locks
                return false;
            default:
                throw;
        }
    }
}

// The first readable row whose id is `id` or above: its id and value of `key`. `skipped` tells
// that damaged pages lie between `id` and that row, whose rows could not be read. False when no
// readable row lies there.
bool RecordFile::ProbeFrom(int key, int64_t id, int64_t& foundId, std::string& value,
                           bool& skipped) {
    if (probes_.empty()) probes_.resize(layout_.keys.size());
    Statement& probe = probes_[key];
    if (!probe)
        probe = Statement(db_, "SELECT id, " + KeyColumn(key) +
                                   " FROM records WHERE id >= ?1 ORDER BY id LIMIT 1");
    enum Outcome { kRow, kNoRow, kDamaged };
    auto from = [&](int64_t start) {
        try {
            ResetOnExit reset(probe);
            probe.BindInt(1, start);
            if (!probe.Step()) return kNoRow;
            foundId = probe.Int(0);
            value = probe.Blob(1);
            return kRow;
        } catch (const SqliteError& e) {
            if (e.primary() != SQLITE_CORRUPT && e.primary() != SQLITE_NOTADB) throw;
            return kDamaged;
        }
    };
    Outcome outcome = from(id);
    skipped = outcome == kDamaged;
    if (!skipped) return outcome == kRow;
    // Past the damage by growing steps, then back to the first start beyond it, so that no
    // readable row is stepped over.
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    int64_t damaged = id, clear = id;
    for (int64_t step = 1; outcome == kDamaged; step *= 2) {
        if (clear == kMax) return false;
        damaged = clear;
        clear = kMax - clear > step ? clear + step : kMax;
        outcome = from(clear);
    }
    while (clear - damaged > 1) {
        int64_t middle = damaged + (clear - damaged) / 2;
        if (from(middle) == kDamaged)
            damaged = middle;
        else
            clear = middle;
    }
    return from(clear) == kRow;
}

// Whether the values of a waiting unique key fall as the row ids rise, told by the first two
// rows that can be read (with fewer, either order holds).
bool RecordFile::ValuesFall(int key) {
    int64_t first = 0, second = 0;
    std::string a, b;
    bool skipped = false;
    return ProbeFrom(key, 1, first, a, skipped) && ProbeFrom(key, first + 1, second, b, skipped) &&
           b < a;
}

int64_t RecordFile::FirstRowPast(int key, std::string_view value, bool orEqual, bool readDown) {
    constexpr int64_t kNone = std::numeric_limits<int64_t>::max();
    const bool falling = readFalling_[key];
    auto qualifies = [&](std::string_view v) {
        if (falling) return orEqual ? v <= value : v < value;
        return orEqual ? v >= value : v > value;
    };
    // Ids start at 1. Invariant: no row below lo qualifies; the first row that does lies in
    // [lo, hi], or is `found`, or (when `uncertain`) is unreadable just before it.
    int64_t lo = 1, hi = kNone - 1, found = kNone;
    bool uncertain = false;
    std::string probed;
    int64_t clearId = 0;  // the last row read that does not qualify, and its value
    std::string clearValue;
    while (lo <= hi) {
        int64_t mid = lo + (hi - lo) / 2;
        int64_t id = 0;
        bool skipped = false;
        if (!ProbeFrom(key, mid, id, probed, skipped)) {
            // Nothing readable from mid on.
            if (skipped) uncertain = true;
            hi = mid - 1;
        } else if (qualifies(probed)) {
            // Unread rows before it lie on the other side of its value: they cannot qualify
            // when this one is exactly the value searched for, equal included, and might
            // otherwise.
            found = id;
            uncertain = skipped && !(orEqual && probed == value);
            hi = mid - 1;
        } else {
            lo = id + 1;  // no row up to id qualifies, unread ones included
            if (id > clearId) {
                clearId = id;
                clearValue = probed;
            }
        }
    }
    // Read down the ids, the answer is the last row that does not qualify. When that row holds
    // exactly the value and equality does not qualify, every row after it does, unread ones
    // included: the answer is that row, whatever lies unread beyond it.
    if (readDown && !orEqual && clearId > 0 && clearValue == value) return clearId + 1;
    if (uncertain) throw SqliteError(SQLITE_CORRUPT, "damaged rows where the search ends");
    return found;
}

void RecordFile::BuildPendingIndexes() {
    for (size_t k = 0; k < layout_.keys.size(); ++k) {
        if (pending_[k]) BuildIndex(k);
    }
}

// While a unique key's index is put off, its values must stay in row id order, rising or
// falling (a new row gets the highest id): the record to insert (its stored keys in keys_) must
// come after the newest row's value in the direction the first two rows set. A value beyond the
// newest is then beyond every value and cannot be a duplicate. A bulk copy read in key order,
// either way (a backup reads history newest first), passes this test at every insert; the
// first value out of order builds the index, which from then on refuses duplicates itself.
void RecordFile::KeepUniqueOrder() {
    if (newestId_ == 0) return;  // an empty file takes any value
    for (size_t k = 0; k < layout_.keys.size(); ++k) {
        if (!pending_[k] || layout_.keys[k].duplicates) continue;
        std::string_view value(keys_[k]), newest(newest_[k]);
        if (oldestId_ == newestId_) {
            if (value != newest) continue;  // the second row sets the direction
        } else if (std::string_view(oldest_[k]) < newest ? value > newest : value < newest) {
            continue;
        }
        BuildIndex(k);
    }
}

// Reads the oldest and the newest row, which KeepUniqueOrder and new ids go by.
void RecordFile::FetchEnds() {
    if (newestKnown_) return;
    FlushStaged();  // the newest may be a staged row, and new ids must come after it
    auto prepare = [&](Statement& s, const char* order) {
        if (s) return;
        std::string sql = "SELECT id";
        for (size_t k = 0; k < layout_.keys.size(); ++k) sql += ", " + KeyColumn(k);
        s = Statement(db_, sql + " FROM records ORDER BY id " + order + " LIMIT 1");
    };
    auto fetch = [&](Statement& s, int64_t& id, std::vector<std::string>& values) {
        ResetOnExit reset(s);
        id = 0;
        values.assign(layout_.keys.size(), std::string());
        if (!s.Step()) return;
        id = s.Int(0);
        for (size_t k = 0; k < layout_.keys.size(); ++k)
            values[k] = s.Blob(static_cast<int>(k + 1));
    };
    prepare(oldestRow_, "ASC");
    prepare(newestRow_, "DESC");
    ForgetUniqueBounds();
    fetch(oldestRow_, oldestId_, oldest_);
    fetch(newestRow_, newestId_, newest_);
    newestKnown_ = true;
}

bool RecordFile::CanStage(bool accelerated) {
    // Staged rows are acknowledged before SQLite sees them, so nothing may refuse them later:
    // each waiting unique index is held by the order, each built one must be given a value
    // outside the range it holds, and the ids given must be free (above the newest, within this
    // transaction).
    if (!accelerated || !batchOpen_ || !newestKnown_ ||
        newestId_ >= std::numeric_limits<int64_t>::max() - kStagedRows)
        return false;
    return OutsideUniqueBounds();
}

void RecordFile::ForgetUniqueBounds() {
    boundsKnown_.assign(layout_.keys.size(), 0);
}

// Where a unique key's index exists (built by a read, or by a value out of order), a value
// below the lowest or above the highest cannot be a duplicate, so such rows may still be staged:
// a copy read in key order into a file that has the index goes on being grouped. The range is read
// from the index once per transaction (another process may write between transactions) and widened
// by every row written since.
bool RecordFile::OutsideUniqueBounds() {
    for (size_t k = 0; k < layout_.keys.size(); ++k) {
        if (layout_.keys[k].duplicates || pending_[k]) continue;
        if (boundsKnown_.size() != layout_.keys.size()) ForgetUniqueBounds();
        if (!boundsKnown_[k]) {
            FlushStaged();  // the range must include every row written
            if (bounds_.empty()) bounds_.resize(layout_.keys.size());
            // Two subqueries: SQLite answers a lone min() or max() from the index's ends, but
            // both in one select scan the whole table.
            const std::string column = KeyColumn(static_cast<int>(k));
            Statement range(db_, "SELECT (SELECT min(" + column + ") FROM records), (SELECT max(" +
                                     column + ") FROM records)");
            if (!range.Step()) return false;
            bounds_[k].empty = sqlite3_column_type(range.get(), 0) == SQLITE_NULL;
            if (!bounds_[k].empty) {
                bounds_[k].low = range.Blob(0);
                bounds_[k].high = range.Blob(1);
            }
            boundsKnown_[k] = 1;
        }
        const UniqueBounds& b = bounds_[k];
        std::string_view value(keys_[k]);
        if (!b.empty && value >= std::string_view(b.low) && value <= std::string_view(b.high))
            return false;
    }
    return true;
}

void RecordFile::WidenUniqueBounds() {
    if (boundsKnown_.size() != layout_.keys.size()) return;
    for (size_t k = 0; k < layout_.keys.size(); ++k) {
        if (!boundsKnown_[k]) continue;
        UniqueBounds& b = bounds_[k];
        if (b.empty) {
            b.low = b.high = keys_[k];
            b.empty = false;
        } else if (std::string_view(keys_[k]) < std::string_view(b.low)) {
            b.low = keys_[k];
        } else if (std::string_view(keys_[k]) > std::string_view(b.high)) {
            b.high = keys_[k];
        }
    }
}

int64_t RecordFile::Stage(const char* record) {
    size_t rowBytes = layout_.recordLength;
    for (const KeyDef& key : layout_.keys) rowBytes += key.length;
    if (staged_.empty()) staged_.resize(rowBytes * kStagedRows);
    char* row = staged_.data() + rowBytes * static_cast<size_t>(stagedRows_);
    std::memcpy(row, record, layout_.recordLength);
    row += layout_.recordLength;
    for (const std::string& key : keys_) {
        std::memcpy(row, key.data(), key.size());
        row += key.size();
    }
    if (stagedRows_++ == 0) firstStagedId_ = newestId_ + 1;
    if (stagedRows_ == kStagedRows) FlushStaged();
    return newestId_ + 1;
}

// Staged rows leave their ids to SQLite: it gives the next id above the highest, which is the
// one Stage announced, and appends the row without the search an explicit id costs.
Statement RecordFile::PrepareInsert(int rows) {
    std::string sql = "INSERT INTO records(rec";
    for (size_t k = 0; k < layout_.keys.size(); ++k) sql += ", " + KeyColumn(k);
    sql += ") VALUES";
    std::string tuple = "(?";
    for (size_t c = 0; c < layout_.keys.size(); ++c) tuple += ", ?";
    tuple += ")";
    for (int r = 0; r < rows; ++r) sql += (r ? ", " : " ") + tuple;
    return Statement(db_, sql);
}

void RecordFile::FlushStaged() {
    if (stagedRows_ == 0) return;
    int rows = stagedRows_;
    stagedRows_ = 0;
    EndLiveCursors();  // as for any write: stepping statements start again from the new state
    ++generation_;
    try {
        if (!stagedInsert_) stagedInsert_ = PrepareInsert(kStagedRows);
        if (!stagedOne_) stagedOne_ = PrepareInsert(1);
        const char* row = staged_.data();
        Statement& s = rows == kStagedRows ? stagedInsert_ : stagedOne_;
        int parameter = 1;
        for (int r = 0; r < rows; ++r) {
            s.BindBlob(parameter++, row, layout_.recordLength);
            row += layout_.recordLength;
            for (const KeyDef& key : layout_.keys) {
                s.BindBlob(parameter++, row, key.length);
                row += key.length;
            }
            if (&s == &stagedOne_) {
                ResetOnExit reset(s);
                s.Step();
                parameter = 1;
            }
        }
        if (&s == &stagedInsert_) {
            ResetOnExit reset(s);
            s.Step();
        }
        if (sqlite3_last_insert_rowid(db_.get()) != firstStagedId_ + rows - 1)
            throw SqliteError(SQLITE_INTERNAL, "staged rows took other ids than announced");
    } catch (const SqliteError&) {
        // These rows were acknowledged already: the batch that holds them cannot go on without
        // them, so it goes entirely, and the caller hears of the failure.
        if (!sqlite3_get_autocommit(db_.get())) sqlite3_exec(db_.get(), "ROLLBACK", 0, 0, 0);
        LoseBatch();
        newestKnown_ = false;
        throw;
    }
}

void RecordFile::LeaveAcceleratedMode() {
    if (bulkJournal_) {
        CommitBatch(false);
        EndLiveCursors();
        bulkJournal_ = false;
        // Back to the normal journal. The switch to WAL rewrites the file's header in one last
        // rollback-journal transaction, unsynced like the batches; one sync of the file then
        // puts them all on the disk, which spares the load a durable write of its own (four
        // more syncs). Should the journal outlive a crash, it holds only the header's old state.
        // (On a network share the normal journal is a rollback one too, and the sync the same.)
        try {
            if (SetJournal(NormalJournal()) && unsynced_ && SyncedWrites()) {
                db_.SyncMainFile();
                unsynced_ = false;
            }
        } catch (const SqliteError&) {
            // Another process reads it now (the next normal open switches it), or the sync
            // failed: the durable write below makes the last attempt, and reports.
        }
    }
    CommitBatch(true);  // what is still unsynced: a load in WAL, or a switch that failed
    ApplySync();
    db_.Exec(kNormalCache);
    TakeCommitMark();
}

// The open batch was rolled back: its writes are gone, and so is what handles read of them (rows
// read ahead, stand-in tables built inside it).
void RecordFile::LoseBatch() {
    batchOpen_ = false;
    ++generation_;
}

void RecordFile::AfterFailedWrite() {
    if (batchOpen_ && sqlite3_get_autocommit(db_.get())) LoseBatch();
    if (!batchOpen_) stagedRows_ = 0;  // they went with their batch
    newestKnown_ = false;
}

int16_t RecordFile::Insert(const char* record, bool accelerated, int64_t& id) {
    if (!insert_) {
        std::string sql = "INSERT INTO records(rec";
        std::string values = "?1";
        for (size_t k = 0; k < layout_.keys.size(); ++k) {
            sql += ", " + KeyColumn(k);
            values += ", ?" + std::to_string(k + 2);
        }
        insert_ = Statement(db_, sql + ") VALUES(" + values + ")");
    }
    int16_t status = btr::kSuccess;
    try {
        BeginWrite(accelerated);
        for (size_t k = 0; k < layout_.keys.size(); ++k)
            BuildStoredKey(layout_.keys[k], record, keys_[k]);
        if (PendingIndexes() > 0) {
            FetchEnds();
            KeepUniqueOrder();
        }
        if (CanStage(accelerated)) {
            id = Stage(record);
        } else {
            FlushStaged();  // ids in order, and SQLite must see every row before this one
            ResetOnExit reset(insert_);
            insert_.BindBlob(1, record, layout_.recordLength);
            for (size_t k = 0; k < layout_.keys.size(); ++k)
                insert_.BindBlob(static_cast<int>(k + 2), keys_[k].data(), keys_[k].size());
            try {
                insert_.Step();
                id = sqlite3_last_insert_rowid(db_.get());
            } catch (const SqliteError& e) {
                if (e.code() != SQLITE_CONSTRAINT_UNIQUE) throw;
                status = btr::kDuplicateKey;
            }
        }
        if (status == btr::kSuccess) WidenUniqueBounds();
        if (status == btr::kSuccess && newestKnown_) {
            if (oldestId_ == 0) {
                oldest_ = keys_;
                oldestId_ = id;
            }
            newest_ = keys_;
            newestId_ = id;
        }
    } catch (const SqliteError&) {
        AfterFailedWrite();
        throw;
    }
    EndWrite(accelerated);
    return status;
}

Statement& RecordFile::UpdateStatement(uint32_t changedKeys) {
    Statement& s = updates_[changedKeys];
    if (!s) {
        std::string sql = "UPDATE records SET rec = ?1, chg = chg + 1";
        int parameter = 2;
        for (size_t k = 0; k < layout_.keys.size(); ++k) {
            if (changedKeys & (1u << k))
                sql += ", " + KeyColumn(k) + " = ?" + std::to_string(parameter++);
        }
        sql += " WHERE id = ?" + std::to_string(parameter) + " AND chg = ?" +
               std::to_string(parameter + 1);
        s = Statement(db_, sql);
    }
    return s;
}

int16_t RecordFile::Update(int64_t id, int64_t expectedChange, const char* record, bool accelerated,
                           int64_t& newChange) {
    if (!fetch_) {
        std::string sql = "SELECT chg";
        for (size_t k = 0; k < layout_.keys.size(); ++k) sql += ", " + KeyColumn(k);
        fetch_ = Statement(db_, sql + " FROM records WHERE id = ?1");
    }
    int16_t status = btr::kSuccess;
    try {
        BeginWrite(accelerated);
        FlushStaged();
        // Only the keys whose value changes are rewritten, which spares their index updates.
        uint32_t changed = 0;
        {
            ResetOnExit reset(fetch_);
            fetch_.BindInt(1, id);
            if (!fetch_.Step() || fetch_.Int(0) != expectedChange) {
                status = btr::kConflict;  // deleted or changed through another position block
            } else {
                for (size_t k = 0; k < layout_.keys.size(); ++k) {
                    BuildStoredKey(layout_.keys[k], record, keys_[k]);
                    if (fetch_.Blob(static_cast<int>(k + 1)) == keys_[k]) continue;
                    if (!layout_.keys[k].modifiable) {
                        status = btr::kModifiableKeyChanged;
                        break;
                    }
                    changed |= 1u << k;
                }
            }
        }
        if (status == btr::kSuccess) {
            ForgetUniqueBounds();  // a changed value may leave the range read from the index
            // A changed unique key could clash, or leave the order that stands in for its index.
            for (size_t k = 0; k < layout_.keys.size(); ++k) {
                if ((changed & (1u << k)) && pending_[k] && !layout_.keys[k].duplicates)
                    BuildIndex(k);
            }
            Statement& update = UpdateStatement(changed);
            ResetOnExit reset(update);
            update.BindBlob(1, record, layout_.recordLength);
            int parameter = 2;
            for (size_t k = 0; k < layout_.keys.size(); ++k) {
                if (changed & (1u << k))
                    update.BindBlob(parameter++, keys_[k].data(), keys_[k].size());
            }
            update.BindInt(parameter, id);
            update.BindInt(parameter + 1, expectedChange);
            try {
                update.Step();
                if (sqlite3_changes(db_.get()) == 0)
                    status = btr::kConflict;
                else
                    newChange = expectedChange + 1;
            } catch (const SqliteError& e) {
                if (e.code() != SQLITE_CONSTRAINT_UNIQUE) throw;
                status = btr::kDuplicateKey;
            }
        }
    } catch (const SqliteError&) {
        AfterFailedWrite();
        throw;
    }
    EndWrite(accelerated);
    return status;
}

int16_t RecordFile::Delete(int64_t id, int64_t expectedChange, bool accelerated) {
    if (!delete_) delete_ = Statement(db_, "DELETE FROM records WHERE id = ?1 AND chg = ?2");
    int16_t status = btr::kSuccess;
    try {
        BeginWrite(accelerated);
        FlushStaged();
        ForgetUniqueBounds();
        ResetOnExit reset(delete_);
        delete_.BindInt(1, id);
        delete_.BindInt(2, expectedChange);
        delete_.Step();
        if (sqlite3_changes(db_.get()) == 0) status = btr::kConflict;
        // The newest row may be gone, and new ids follow the highest left.
        newestKnown_ = false;
    } catch (const SqliteError&) {
        AfterFailedWrite();
        throw;
    }
    EndWrite(accelerated);
    return status;
}

uint32_t RecordFile::CountRecords() {
    FlushStaged();
    if (!count_) count_ = Statement(db_, "SELECT count(*) FROM records");
    ResetOnExit reset(count_);
    count_.Step();
    return static_cast<uint32_t>(count_.Int(0));
}

}  // namespace toverin::engine
