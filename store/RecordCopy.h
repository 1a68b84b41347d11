// The record-by-record copy that every tool shares (backup, restore, the content tools): positions
// on a bound of a key, reads on in one direction until the other bound or the end of the file,
// and inserts each record, as the caller's rewrite leaves it, into the target slot. What a
// failure means (a line, a box, a key typed to resume, the end of the file) is the caller's to
// say through the hooks; the loop only reports what happened.
//
// The target may be the source slot itself (a station's schedule copied to other days of the
// same station): an insert moves the slot's position onto the new record, so after each one
// the loop reads its source record again by its own key and goes on from there. The rewritten
// records must then fall outside the bounds, or the copy would read its own output.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "store/Pervasive.h"

namespace toverin {

enum class RecordAction { Copy, Skip, Stop };

struct RecordCopyJob {
    SlotBank* source = nullptr;  // read: (base, fileNumber, station) of this bank
    int base = 0;
    int fileNumber = 0;
    int station = 1;
    SlotBank* target = nullptr;  // written: (targetBase, fileNumber, targetStation) of this bank
    int targetBase = 0;
    int targetStation = 1;
    int keyNumber = 0;
    std::string lower;  // bounds, compared with the keys read as byte strings
    std::string upper;
    bool descending = false;
    std::string caller = "CopyRecords";  // names the calls in the history and the log

    // Each record read within the bounds, before it is inserted: may change it. Skip leaves it
    // behind, Stop ends the copy before it.
    std::function<RecordAction(std::string& record)> rewrite;
    // An insert refused as a duplicate key: change the record and return true to insert it
    // again; false leaves it behind. Without a hook duplicates are left behind.
    std::function<bool(std::string& record)> onDuplicate;
    // A read that failed other than at the end of the file: a key to go on from (above it when
    // ascending, below it when descending), or nothing to end the copy.
    std::function<std::optional<std::string>(int16_t status, const std::string& key)> onReadError;
    // An insert that failed other than as a duplicate: true goes on with the next record.
    std::function<bool(int16_t status, const std::string& key)> onInsertError;
    // Every 20 records read: records copied so far and the key reached. The interface is served
    // right after.
    std::function<void(long long copied, const std::string& key)> progress;
    // After each record; false ends the copy (a confirmed stop).
    std::function<bool()> afterRecord;
};

struct RecordCopyResult {
    long long copied = 0;
    long long duplicates = 0;  // inserts refused as duplicates and left behind
    bool stopped = false;      // afterRecord or the rewrite ended it
    bool readError = false;    // a read failed other than at the end of the file
    bool writeError = false;   // an insert failed other than as a duplicate
    int16_t readStatus = 0;    // the last failed read's status
    int16_t writeStatus = 0;   // the last failed insert's status
};

RecordCopyResult CopyRecords(const RecordCopyJob& job);

// A key as a progress label or a log line shows it: printable, without trailing blanks or
// fillers.
std::string PrintableKey(const std::string& key);

}  // namespace toverin
