// A forward reader of one record file over a key range (the data viewer's VisuData, toverinctl's
// dump and the exports): it positions with Get Greater or Equal on the chosen key at the start
// value, reads on with Get Next, and stops at the end of the file (status 9), at status 3, or at
// the first record whose key passes the limit value. Each record comes cut into the viewer's
// columns (VisuDataInitCol's headings and the file's layout; file 21's "VER" and "VEE" records by
// their own layouts), or whole when the file's records do not have the layout's length.
//
// The cursor reads through a slot bank of its own, opened read-only and quiet: a failed read
// comes back as a status for the caller to handle, never as a box or the end of the program.
//
//   RecordCursor cursor;
//   if (cursor.Open({path, 22, 5, "rock", "rz"}) != CursorOpen::Ok) ...
//   CursorRow row;
//   while (cursor.Next(row)) Show(row.cells);
//   if (cursor.Failed()) Report(cursor.Status());
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/Pervasive.h"

namespace toverin {

// The keys of a Stat answer, each as its segments.
std::vector<std::vector<btr::KeySpec>> KeysOfStructure(const btr::PbTBtrFileBuf& fileBuf);

struct CursorSpec {
    std::string path;
    int fileNumber = -1;  // the catalogue number giving the layout; -1: records shown whole
    int keyNumber = 0;
    std::string from;  // start value (UTF-8); empty: from the first record
    std::string to;    // limit value (UTF-8); empty: to the end of the file
    int base = 0;      // where the reads are said to be in the bank's reports
    int station = 1;
};

enum class CursorOpen {
    Ok,
    Missing,        // no file at the path
    NotRecordFile,  // status 30
    BadKey,         // the key number is not below the file's number of keys
    Failed,         // any other status (Status() tells it)
};

struct CursorRow {
    std::vector<std::string> cells;
    // The row's own headings when its record has a layout of its own (file 21's VER and VEE),
    // else nullptr: the cursor's Headings() name the cells.
    const std::vector<std::string>* headings = nullptr;
};

// Where a record lies on the cursor's key, to come back to it: its key value and how many
// records with the same value come before it.
struct CursorMark {
    std::string key;
    uint32_t duplicatesBefore = 0;
};

class RecordCursor {
  public:
    explicit RecordCursor(const std::string& client = "Visualisation");
    ~RecordCursor();
    RecordCursor(const RecordCursor&) = delete;
    RecordCursor& operator=(const RecordCursor&) = delete;

    CursorOpen Open(const CursorSpec& query);
    void Close();

    // The file as the engine describes it (valid after Open reached the file).
    const btr::PbTBtrFileBuf& Structure() const { return structure_; }
    int KeyCount() const { return structure_.IndxCnt; }
    long long RecordCount() const { return structure_.RecordCount; }
    // The column headings of the rows: VisuDataInitCol's, or "Record" for whole records.
    const std::vector<std::string>& Headings() const { return headings_; }

    // The next record of the range; false at its end or on a failed read (Failed()).
    bool Next(CursorRow& row);
    // Moves on to the next record of the range without cutting it (counting, skipping).
    bool Skip();
    // The place of the record Next or Skip returned last.
    CursorMark Mark() const { return {lastKey_, duplicateRun_}; }
    // Makes the record at `mark` the one the next Next or Skip returns. False when it is no
    // longer there (the file changed); the cursor then goes on from the next record.
    bool SeekTo(const CursorMark& mark);

    // The status that ended the reading: 0 while it goes on or after the limit, 9 or 3 at the end
    // of the file, anything else a failure.
    int16_t Status() const { return status_; }
    bool Failed() const;

  private:
    bool Read(uint16_t operation, const std::string& key);
    bool Advance();

    SlotBank bank_;
    CursorSpec spec_;
    int slotFile_ = 0;
    bool open_ = false;
    bool cut_ = false;
    btr::PbTBtrFileBuf structure_{};
    std::vector<std::string> headings_;
    size_t keyLength_ = 0;
    bool caseless_ = false;
    std::string low_, high_;  // the bounds as key values
    bool started_ = false, pending_ = false, ended_ = false;
    int16_t status_ = 0;
    std::string record_, key_;
    std::string lastKey_;
    uint32_t duplicateRun_ = 0;
    std::vector<std::string> formHeadings_;
};

}  // namespace toverin
