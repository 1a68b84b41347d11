// Reading a key range of a record file through a client's bank, for the content tools.
#pragma once

#include <functional>
#include <string>

#include "store/Pervasive.h"

namespace toverin {

struct RecordWalk {
    SlotBank* bank = nullptr;
    int base = 0;
    int fileNumber = 0;
    int station = 1;
    int keyNumber = 0;
    std::string low;   // first key (Get Greater or Equal)
    std::string high;  // last key, compared on the key's length; "" runs to the end of the file
    std::string caller;
};

struct RecordWalkResult {
    long long records = 0;
    int failedReads = 0;  // reads that failed other than at the end of the file
    bool complete() const { return failedReads == 0; }
};

// Calls `each` with every record of the range in key order. A read that fails other than at the
// end of the file has been reported by the access layer; the walk then goes on after the last
// key read, and ends when that fails too.
RecordWalkResult WalkRecords(const RecordWalk& walk,
                             const std::function<void(const std::string& record)>& each);

// Closes, when it goes, every slot it opened that was not open before: a tool holds its files
// for the time of one load or save, and leaves its bank as it found it.
class OpenedFiles {
  public:
    OpenedFiles(SlotBank& bank, int base) : bank_(bank), base_(base) {}
    ~OpenedFiles();
    OpenedFiles(const OpenedFiles&) = delete;
    OpenedFiles& operator=(const OpenedFiles&) = delete;
    // Opens file `fileNumber` of `station` unless the bank holds it already; true when open.
    bool Open(int fileNumber, int station);
    // The same for a rewrite of the whole file: opened accelerated, so that the writes go to the
    // disk together when the file closes (a crash before leaves the file as it was). The
    // writes are made durable by Close, whose status tells whether they were.
    bool OpenForRewrite(int fileNumber, int station);
    // Closes a file this object opened now; the engine status of the close (0 when it was not
    // opened here).
    int16_t Close(int fileNumber, int station);

  private:
    SlotBank& bank_;
    int base_;
    std::vector<std::pair<int, int>> opened_;  // file number, station
};

}  // namespace toverin
