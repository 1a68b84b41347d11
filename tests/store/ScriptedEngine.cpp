#include "tests/store/ScriptedEngine.h"

#include <algorithm>
#include <cstring>

#include "store/Pervasive.h"

namespace toverin::testing {
namespace {
ScriptedEngine* gEngine = nullptr;
}

ScriptedEngine::ScriptedEngine() {
    gEngine = this;
    SetRecordEngine(&ScriptedBtrCall);
}

ScriptedEngine::~ScriptedEngine() {
    SetRecordEngine(&BTRCALL);
    gEngine = nullptr;
}

void ScriptedEngine::Queue(uint16_t operation, int16_t status, int times) {
    for (int i = 0; i < times; ++i) script[operation].push_back({status, std::nullopt});
}

void ScriptedEngine::QueueRecord(uint16_t operation, int16_t status, std::string record) {
    script[operation].push_back({status, std::move(record)});
}

std::vector<uint16_t> ScriptedEngine::Operations() const {
    std::vector<uint16_t> ops;
    for (const EngineCall& call : calls) ops.push_back(call.operation);
    return ops;
}

}  // namespace toverin::testing

extern "C" int16_t ScriptedBtrCall(uint16_t operation, void* positionBlock, void* dataBuffer,
                                   uint32_t* dataLength, void* keyBuffer, uint8_t keyLength,
                                   int8_t keyNumber) {
    using toverin::testing::gEngine;
    if (gEngine == nullptr) return toverin::btr::kInvalidOperation;
    toverin::testing::EngineCall call;
    call.operation = operation;
    call.keyNumber = keyNumber;
    call.dataLength = dataLength != nullptr ? *dataLength : 0;
    if (dataBuffer != nullptr) call.data.assign(static_cast<char*>(dataBuffer), call.dataLength);
    if (keyBuffer != nullptr) call.key.assign(static_cast<char*>(keyBuffer), keyLength);
    gEngine->calls.push_back(call);

    if (operation == toverin::btr::kOpen && positionBlock != nullptr)
        std::memcpy(positionBlock, "SCRIPTED", 8);
    auto& queue = gEngine->script[operation];
    if (queue.empty()) return toverin::btr::kSuccess;
    toverin::testing::ScriptedReply reply = queue.front();
    queue.pop_front();
    if (reply.data && dataBuffer != nullptr && dataLength != nullptr) {
        size_t n = std::min<size_t>(reply.data->size(), *dataLength);
        std::memcpy(dataBuffer, reply.data->data(), n);
        *dataLength = static_cast<uint32_t>(reply.data->size());
    }
    return reply.status;
}
