// A thin C++ handle over BTRCALL: one position block, closed when the object goes. Buffers are
// std::string whose size is the length given to the engine (data length, key length), as the C
// entry point takes them; reads shrink the data to the length the engine returns.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "store/engine/Btrieve.h"

namespace toverin::engine {

// Whether the engine waits for the disk: at every normal-mode commit, when a file is created and
// when an accelerated load ends. On by default. Turned off only while making files that can be
// made again (the demo site, test fixtures): a crash of the machine may then lose or damage the
// latest writes, but a run makes them hundreds of times faster on a slow disk.
void SetSyncedWrites(bool on);
bool SyncedWrites();

// SQLite's own check of the storage under a record file ("ok", or what it found), read-only.
std::string IntegrityCheck(const std::string& path);

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
