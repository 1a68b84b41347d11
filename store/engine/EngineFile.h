// A thin C++ handle over BTRCALL: one position block, closed when the object goes. Buffers are
// std::string whose size is the length given to the engine (data length, key length), as the C
// entry point takes them; reads shrink the data to the length the engine returns.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "store/engine/Btrieve.h"

namespace toverin::engine {

// Whether the engine waits for the disk: at every normal-mode commit, when a file is created and
// when an accelerated load ends. On by default. Turned off only while making files that can be
// made again (the demo site, test fixtures): a crash of the machine may then lose or damage the
// latest writes, but a run makes them hundreds of times faster on a slow disk.
void SetSyncedWrites(bool on);
bool SyncedWrites();

// What the engine has to tell the program, one line of text each time it happens: a file on a
// network share opened with a rollback journal instead of the shared-memory log. The layer above
// decides what to do with it (the program writes it to the day's log). Called with the engine's
// lock held: the handler must not call the engine. Empty: the lines are dropped.
using EngineNotice = std::function<void(const std::string& line)>;
void SetEngineNotice(EngineNotice notice);

// Which file system holds a path ("ext4", "nfs4" …; empty when unknown). By default the system's
// mount table is read (see FileSystems.h); tests put their own answer here. Empty: the default.
using FileSystemProbe = std::function<std::string(const std::string& path)>;
void SetFileSystemProbe(FileSystemProbe probe);

// SQLite's own consistency check of a record file ("ok", or what it found), opened the way a
// read-only open does: nothing is written to the file and nothing is left beside it.
std::string IntegrityReport(const std::string& path);

class EngineFile {
  public:
    explicit EngineFile(BtrCallFunction call = &BTRCALL) : call_(call) {}
    ~EngineFile() { Close(); }
    EngineFile(const EngineFile&) = delete;
    EngineFile& operator=(const EngineFile&) = delete;

    static int16_t Create(const std::string& path, const btr::PbTBtrFileBuf& fileBuf,
                          BtrCallFunction call = &BTRCALL);

    int16_t Open(const std::string& path, int8_t mode = btr::kOpenNormal);
    int16_t Close();
    bool isOpen() const { return open_; }

    // Any operation with this handle's position block.
    int16_t Call(uint16_t operation, std::string& data, std::string& key, int8_t keyNumber);
    int16_t Call(uint16_t operation, std::string& data, int8_t keyNumber);  // key buffer unused

    int16_t Stat(btr::PbTBtrFileBuf& fileBuf);
    char* positionBlock() { return block_.data(); }

  private:
    BtrCallFunction call_;
    std::array<char, btr::kPositionBlockSize> block_{};
    bool open_ = false;
};

}  // namespace toverin::engine
