#include "store/engine/EngineFile.h"

#include <algorithm>
#include <cstring>

namespace toverin::engine {

namespace {

std::string PathKey(const std::string& path) {
    std::string key = path;
    key.push_back('\0');
    return key;
}

}  // namespace

int16_t EngineFile::Create(const std::string& path, const btr::PbTBtrFileBuf& fileBuf,
                           BtrCallFunction call) {
    std::array<char, btr::kPositionBlockSize> block{};
    btr::PbTBtrFileBuf copy = fileBuf;
    uint32_t length = sizeof copy;
    std::string key = PathKey(path);
    return call(btr::kCreate, block.data(), &copy, &length, key.data(),
                static_cast<uint8_t>(std::min<size_t>(key.size(), 255)), 0);
}

int16_t EngineFile::Open(const std::string& path, int8_t mode) {
    Close();
    std::string key = PathKey(path);
    uint32_t length = 0;
    int16_t status = call_(btr::kOpen, block_.data(), nullptr, &length, key.data(),
                           static_cast<uint8_t>(std::min<size_t>(key.size(), 255)), mode);
    open_ = status == btr::kSuccess;
    return status;
}

int16_t EngineFile::Close() {
    if (!open_) return btr::kSuccess;
    open_ = false;
    uint32_t length = 0;
    return call_(btr::kClose, block_.data(), nullptr, &length, nullptr, 0, 0);
}

int16_t EngineFile::Call(uint16_t operation, std::string& data, std::string& key,
                         int8_t keyNumber) {
    uint32_t length = static_cast<uint32_t>(data.size());
    int16_t status = call_(operation, block_.data(), data.data(), &length, key.data(),
                           static_cast<uint8_t>(std::min<size_t>(key.size(), 255)), keyNumber);
    if (length < data.size()) data.resize(length);
    return status;
}

int16_t EngineFile::Call(uint16_t operation, std::string& data, int8_t keyNumber) {
    std::string key(255, '\0');
    return Call(operation, data, key, keyNumber);
}

int16_t EngineFile::Stat(btr::PbTBtrFileBuf& fileBuf) {
    std::string data(sizeof fileBuf, '\0');
    std::string key(255, '\0');
    int16_t status = Call(btr::kStat, data, key, -1);
    std::memset(&fileBuf, 0, sizeof fileBuf);
    std::memcpy(&fileBuf, data.data(), std::min(data.size(), sizeof fileBuf));
    return status;
}

}  // namespace toverin::engine

