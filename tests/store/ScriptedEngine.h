// An engine that answers from a script: per operation, a queue of statuses (and, for reads, of
// records) given in call order; an operation with nothing queued succeeds. Every call is
// recorded. It installs itself as the access layer's engine for its lifetime.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "store/engine/Btrieve.h"

namespace toverin::testing {

struct EngineCall {
    uint16_t operation = 0;
    int8_t keyNumber = 0;
    std::string data;  // as handed in, dataLength bytes
    std::string key;   // as handed in, keyLength bytes
    uint32_t dataLength = 0;
};

struct ScriptedReply {
    int16_t status = 0;
    std::optional<std::string> data;  // copied into the data buffer when given
};

class ScriptedEngine {
  public:
    ScriptedEngine();
    ~ScriptedEngine();
    ScriptedEngine(const ScriptedEngine&) = delete;
    ScriptedEngine& operator=(const ScriptedEngine&) = delete;

    // `times` replies of `status` to `operation`.
    void Queue(uint16_t operation, int16_t status, int times = 1);
    void QueueRecord(uint16_t operation, int16_t status, std::string record);

    std::vector<uint16_t> Operations() const;
    void ClearCalls() { calls.clear(); }

    std::vector<EngineCall> calls;
    std::map<uint16_t, std::deque<ScriptedReply>> script;
};

}  // namespace toverin::testing

extern "C" int16_t ScriptedBtrCall(uint16_t operation, void* positionBlock, void* dataBuffer,
                                   uint32_t* dataLength, void* keyBuffer, uint8_t keyLength,
                                   int8_t keyNumber);
