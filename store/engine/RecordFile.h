// One record file open in this process: its SQLite connection, its layout, the statements every
// handle shares, and the grouping of accelerated writes into large transactions. Handles (one per
// position block) keep their own stepping statements on this connection.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "store/engine/KeyLayout.h"
#include "store/engine/Sqlite.h"

namespace toverin::engine {

// How a handle's stepping statement searches, per key.
enum class CursorKind {
    kAfterInGroup,   // same key value, later rows (duplicates), ascending
    kGreater,        // key > value, ascending
    kGreaterEqual,   // key >= value, ascending
    kBeforeInGroup,  // same key value, earlier rows, descending
    kLess,           // key < value, descending
    kLessEqual,      // key <= value, descending
    kRowsUpFrom,     // id >= bound, ascending (a key in row order, see ReadPath)
    kRowsDownFrom,   // id <= bound, descending (the same, and records of descending reads)
    kRowAt,          // id = bound (Get Direct)
};
inline constexpr int kCursorKinds = 9;

// Columns of every cursor row.
enum CursorColumn { kColId = 0, kColChange = 1, kColRecord = 2, kColKey = 3 };

// Whether a cursor reads its index alone, leaving the change counter and the record NULL: the
// reader takes them from a statement stepping down the row ids (kRowsDownFrom). SQLite finds
// the next row up a table without a search but has no such shortcut downwards, and rows
// written over time (history) stand in their key's order by id as well.
inline bool ReadsIndexAlone(CursorKind kind) {
    return kind == CursorKind::kBeforeInGroup || kind == CursorKind::kLess ||
           kind == CursorKind::kLessEqual;
}

// How reads by a key find their records.
enum class ReadPath {
    kIndex,  // the key's index
    // No index (a bulk load put it off, and it may not or cannot be built now):
    kRowOrder,  // a unique key, whose values rise or fall with the row ids (see KeepUniqueOrder)
    kStandIn,   // a key with duplicates: a private copy of (value, id) pairs, in a temporary table
};

class RecordFile {
  public:
    // Opens an existing record file; `firstOpener` is true when no other handle of this process
    // has it open (only then may accelerated mode switch its journal). Returns 0 or a status.
    static int16_t Open(const std::string& path, int8_t mode, bool firstOpener,
                        std::unique_ptr<RecordFile>& out);
    // Creates (or replaces) the file at `path`. The caller has checked that this process does not
    // have it open; another process holding it gives 25.
    static int16_t Create(const std::string& path, const KeyLayout& layout);

    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    // Another handle of this process opens the file in `mode`. A file first opened read-only
    // gets the journal of normal use when a handle that may write joins.
    void Join(int8_t mode);

    const KeyLayout& layout() const { return layout_; }
    const std::string& path() const { return path_; }
    bool exclusive() const { return exclusive_; }

    // Called at the start of every read by `key`. Notices what other connections committed
    // since the last call (generation() moves), hands staged rows to SQLite, and makes the key
    // readable: builds its index if a bulk load put it off and `mayBuild` (never for a read-only
    // handle: such an open leaves the file as it is), or else picks a way to read without it.
    ReadPath BeforeRead(int key, bool mayBuild);
    ReadPath PathOf(int key) const {
        if (!pending_[key]) return ReadPath::kIndex;
        return layout_.keys[key].duplicates ? ReadPath::kStandIn : ReadPath::kRowOrder;
    }
    // Moves whenever a key's read path changes: statements prepared for the old one must go.
    uint64_t pathVersion() const { return pathVersion_; }
    Statement PrepareCursor(int key, CursorKind kind);
    // Keys whose index the file does not have yet (put off by a bulk load).
    int PendingIndexes() const;
    // For a key read in row order: whether its values fall as the row ids rise.
    bool FallsInRowOrder(int key) const { return readFalling_[key]; }
    // For a key read in row order: the id of the first row whose value is past `value` in row
    // order (above it where values rise, below it where they fall; or equal too, with
    // `orEqual`), INT64_MAX when there is none. `readDown`: the caller reads down the ids from
    // just before that row. Steps over damaged pages where the answer cannot lie in them; throws
    // SQLITE_CORRUPT where it could.
    int64_t FirstRowPast(int key, std::string_view value, bool orEqual, bool readDown);

    // A handle stepped a statement, which holds a read snapshot until it is reset.
    void NoteLiveCursor() { liveCursors_ = true; }
    // Resets every stepping statement, ending the connection's read snapshot: called before each
    // search and write, and when each read call returns, so that no handle keeps a snapshot
    // between calls (an idle one would keep SQLite from ever resetting the log).
    void EndLiveCursors();
    // Moves whenever EndLiveCursors reset statements: a handle's statement from before cannot go
    // on.
    uint64_t resets() const { return resets_; }
    // Moves whenever the records may have changed: a write through this connection, or a commit
    // by another one noticed by BeforeRead. Rows a handle read ahead are good while it stays.
    uint64_t generation() const { return generation_; }

    // Writes. `accelerated` writes join the open batch; normal ones are durable on return.
    int16_t Insert(const char* record, bool accelerated, int64_t& id);
    int16_t Update(int64_t id, int64_t expectedChange, const char* record, bool accelerated,
                   int64_t& newChange);
    int16_t Delete(int64_t id, int64_t expectedChange, bool accelerated);
    uint32_t CountRecords();
    // The stored value of `key` of the record the last successful Insert or Update wrote.
    const std::string& WrittenKey(int key) const { return keys_[key]; }

    void AddAcceleratedHandle();
    // Called when an accelerated handle closes: the last one makes the batch durable.
    void RemoveAcceleratedHandle();

  private:
    RecordFile() = default;
    void ConfigureForMode(int8_t mode, bool firstOpener, bool logFound);
    bool SetJournal(const char* mode);
    const char* NormalJournal() const { return network_ ? "DELETE" : "WAL"; }
    void NoteFileSystem(int8_t mode, const std::string& type);
    using CommitMark = std::array<uint64_t, 6>;
    bool ReadCommitMark(CommitMark& mark);
    void TakeCommitMark();
    void Observe();
    void AfterOutsideChange();
    void BuildStandIn(int key);
    void ApplySync();
    void AfterFailedWrite();
    void LoseBatch();
    void BeginWrite(bool accelerated);
    void EndWrite(bool accelerated);
    void CommitBatch(bool durable);
    void LeaveAcceleratedMode();
    bool Empty();
    void DeferIndexes();
    void LoadPendingIndexes();
    void BuildIndex(size_t key);
    bool BuildIndexForRead(int key);
    void BuildPendingIndexes();
    bool ProbeFrom(int key, int64_t id, int64_t& foundId, std::string& value, bool& skipped);
    bool ValuesFall(int key);
    void KeepUniqueOrder();
    void FetchEnds();
    bool CanStage(bool accelerated);
    bool OutsideUniqueBounds();
    void WidenUniqueBounds();
    void ForgetUniqueBounds();
    int64_t Stage(const char* record);
    void FlushStaged();
    Statement PrepareInsert(int rows);
    Statement& UpdateStatement(uint32_t changedKeys);

    std::string path_;
    KeyLayout layout_;
    bool exclusive_ = false;
    std::vector<std::string> keys_;  // scratch: stored key values of the record being written

    // Per key: the file has no index for it yet, because a bulk load into an empty file put it
    // off. That is recorded by the index's absence, which every connection sees and which a
    // crash cannot leave half done. Reloaded whenever a write transaction starts.
    std::vector<char> pending_;
    std::vector<char> unbuildable_;  // per key: building for a read failed; read without it
    std::vector<char> readFalling_;  // per key read in row order: values fall with ids
    std::vector<char> fallingKnown_;
    // Per key with duplicates read without its index: the generation its stand-in table was
    // built at (0: none).
    std::vector<uint64_t> standIn_;
    uint64_t pathVersion_ = 0;
    // While an index is put off: the oldest and the newest row's ids and stored key values,
    // valid within the current write transaction only (another process may write between
    // transactions).
    int64_t oldestId_ = 0, newestId_ = 0;
    std::vector<std::string> oldest_, newest_;
    bool newestKnown_ = false;
    // Per built unique key: the lowest and highest value in the file, valid while newest_ is.
    struct UniqueBounds {
        std::string low, high;
        bool empty = true;
    };
    std::vector<UniqueBounds> bounds_;
    std::vector<char> boundsKnown_;
    // Rows of a bulk load acknowledged but not yet handed to SQLite, each the record then its
    // stored keys, with consecutive ids from firstStagedId_. Handed over before anything else
    // touches the table, and at every commit.
    std::vector<char> staged_;
    int stagedRows_ = 0;
    int64_t firstStagedId_ = 0;

    uint64_t generation_ = 1;
    uint64_t resets_ = 0;
    bool liveCursors_ = false;
    // The journal in use: the shared-memory log, or a rollback journal (network shares, bulk
    // loads, files never opened for writing).
    bool wal_ = false;
    bool journalSet_ = false;  // set to the normal one by this connection (not a read-only open)
    bool network_ = false;
    // What tells another connection's commit: the log's index header in shared memory (WAL), or
    // the data version SQLite keeps per connection (rollback journal).
    CommitMark commitMark_{};
    bool commitMarkKnown_ = false;
    // The log index's header, mapped by SQLite while the file is in WAL (cleared whenever the
    // journal changes, which may unmap it).
    const volatile uint64_t* walIndexHeader_ = nullptr;
    int acceleratedHandles_ = 0;
    bool bulkJournal_ = false;  // journal switched from WAL to a rollback journal for a bulk load
    bool batchOpen_ = false;
    bool unsynced_ = false;  // batches committed without a sync since the last durable point
    int batchWrites_ = 0;

    // Declared last: statements must be finalized before the connection closes.
    Database db_;
    Statement insert_, fetch_, delete_, count_, indexes_, oldestRow_, newestRow_, stagedInsert_,
        stagedOne_, dataVersion_;
    std::map<uint32_t, Statement> updates_;  // by set of changed key columns
    std::vector<Statement> probes_;          // per key: the first row at or after an id
};

}  // namespace toverin::engine
