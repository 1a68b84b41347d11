// What the engine says about a file and about itself: record counts, the structure shown above
// the data viewer's grid, and the engine's version for the options window.
#include <cstring>
#include <utility>

#include "app/Errors.h"
#include "app/Log.h"
#include "app/Text.h"
#include "store/Pervasive.h"
#include "store/PervasiveState.h"

namespace toverin {

using namespace pervasive;

namespace {

// Room for the Stat answer of any key layout the engine allows; only the 160-byte head is read.
constexpr size_t kStatBufferSize = 1024;
constexpr size_t kVersionBufferSize = 255;

int16_t Call(uint16_t operation, std::string& block, std::string& data, std::string& key,
             int8_t keyNumber, uint32_t* returnedLength = nullptr) {
    auto length = static_cast<uint32_t>(data.size());
    int16_t status =
        RecordEngine()(operation, block.data(), data.data(), &length, key.data(),
                       static_cast<uint8_t>(std::min<size_t>(key.size(), 255)), keyNumber);
    if (returnedLength != nullptr) *returnedLength = length;
    return status;
}

int16_t StatBlock(std::string& block, btr::PbTBtrFileBuf& fileBuf) {
    std::string data(kStatBufferSize, '\0');
    std::string key(255, '\0');
    int16_t status = Call(btr::kStat, block, data, key, -1);
    std::memset(&fileBuf, 0, sizeof fileBuf);
    if (status == btr::kSuccess) std::memcpy(&fileBuf, data.data(), sizeof fileBuf);
    return status;
}

int16_t OpenPath(std::string& block, const std::string& path, int8_t mode) {
    std::string data(255, ' ');
    std::string key = path;
    key.push_back('\0');
    if (key.size() > 255) return btr::kInvalidFileName;
    return Call(btr::kOpen, block, data, key, mode);
}

void ClosePath(std::string& block) {
    std::string data;
    std::string key(1, '\0');
    Call(btr::kClose, block, data, key, 0);
}

std::string FlagWords(uint16_t flags) {
    static const std::pair<uint16_t, const char*> kWords[] = {
        {btr::kKeyDuplicates, "Duplicate "},  {btr::kKeyModifiable, "Modifiable "},
        {btr::kKeyBinary, "Binary "},         {btr::kKeySegmented, "Segmented "},
        {btr::kKeyAlternate, "Alternate "},   {btr::kKeyDescending, "Dec "},
        {btr::kKeySupplemental, "Sup "},      {btr::kKeyNullKey, "Nul "},
        {btr::kKeyCaseInsensitive, "Casse "},
    };
    std::string words;
    for (const auto& [flag, word] : kWords)
        if ((flags & flag) != 0) words += word;
    return words;
}

std::string DescribeStructure(const btr::PbTBtrFileBuf& fileBuf) {
    std::string text = "F RecLen:" + std::to_string(fileBuf.RecLen) +
                       " PageSize:" + std::to_string(fileBuf.PageSize) +
                       " Keys:" + std::to_string(fileBuf.IndxCnt) +
                       " Records:" + std::to_string(fileBuf.RecordCount) + "\n";
    int key = 0;
    constexpr int kSegments = sizeof fileBuf.Keys / sizeof fileBuf.Keys[0];
    for (int i = 0; i < kSegments && key < fileBuf.IndxCnt; ++i) {
        const btr::KeySpec& segment = fileBuf.Keys[i];
        // The flag words keep their blanks, the last one's too.
        text += "K" + std::to_string(key) + " Pos:" + std::to_string(segment.position) +
                " Len:" + std::to_string(segment.length) + " " + FlagWords(segment.flags) + "\n";
        if ((segment.flags & btr::kKeySegmented) == 0) ++key;
    }
    return text;
}

}  // namespace

long long SlotBank::RecordCount(int base, int fileNumber, int station) {
    TraceProcedure(kModuleInfo, "RecordCount");
    return Guarded<long long>(ProcName("RecordCount", kModuleInfo), -1, [&]() -> long long {
        if (!IsFileOpen(base, fileNumber, station)) return -1;
        btr::PbTBtrFileBuf fileBuf;
        int16_t status = StatBlock(SlotAt(base, fileNumber, station).positionBlock, fileBuf);
        lastStatus_ = status;
        return status == btr::kSuccess ? static_cast<long long>(fileBuf.RecordCount) : -1;
    });
}

int16_t SlotBank::Stat(int base, int fileNumber, int station, btr::PbTBtrFileBuf& fileBuf) {
    TraceProcedure(kModuleInfo, "Stat");
    return Guarded<int16_t>(ProcName("Stat", kModuleInfo), btr::kIoError, [&]() -> int16_t {
        std::memset(&fileBuf, 0, sizeof fileBuf);
        if (!IsFileOpen(base, fileNumber, station)) return btr::kFileNotOpen;
        lastStatus_ = StatBlock(SlotAt(base, fileNumber, station).positionBlock, fileBuf);
        return lastStatus_;
    });
}

long long RecordCountOfFile(const std::string& path) {
    TraceProcedure(kModuleInfo, "RecordCountOfFile");
    return Guarded<long long>(ProcName("RecordCountOfFile", kModuleInfo), -1, [&]() -> long long {
        std::string block(btr::kPositionBlockSize, ' ');
        if (OpenPath(block, path, btr::kOpenReadOnly) != btr::kSuccess) return -1;
        btr::PbTBtrFileBuf fileBuf;
        int16_t status = StatBlock(block, fileBuf);
        ClosePath(block);
        return status == btr::kSuccess ? static_cast<long long>(fileBuf.RecordCount) : -1;
    });
}

std::string LectureStructureFichier(int fileNumber, const std::string& path) {
    TraceProcedure(kModuleInfo, "LectureStructureFichier");
    (void)fileNumber;  // the file tells its own structure
    return Guarded<std::string>(
        ProcName("LectureStructureFichier", kModuleInfo), "", [&]() -> std::string {
            std::string block(btr::kPositionBlockSize, ' ');
            if (OpenSlotsInProcess() == 0) {
                std::string data(1, '\0');
                std::string key(1, '\0');
                Call(btr::kReset, block, data, key, 0);
            }
            int16_t status = OpenPath(block, path, btr::kOpenNormal);
            if (status != btr::kSuccess) {
                TraceLog("Err: " + std::to_string(status) + " File: " + path);
                return "";
            }
            btr::PbTBtrFileBuf fileBuf;
            status = StatBlock(block, fileBuf);
            ClosePath(block);
            if (status != btr::kSuccess) {
                TraceLog("Err: " + std::to_string(status) + " File: " + path);
                return "";
            }
            return DescribeStructure(fileBuf);
        });
}

std::string VersionsMoteur() {
    TraceProcedure(kModuleInfo, "VersionsMoteur");
    return Guarded<std::string>(ProcName("VersionsMoteur", kModuleInfo), "", [&]() -> std::string {
        std::string block(btr::kPositionBlockSize, ' ');
        std::string data(kVersionBufferSize, '\0');
        std::string key(1, '\0');
        uint32_t length = 0;
        if (Call(btr::kVersion, block, data, key, 0, &length) != btr::kSuccess) return "";
        size_t count = std::min<size_t>(length, data.size()) / sizeof(btr::VersionComponent);
        std::string text;
        for (size_t i = 0; i < count; ++i) {
            btr::VersionComponent component;
            std::memcpy(&component, data.data() + i * sizeof component, sizeof component);
            if (!text.empty()) text += ' ';
            text += std::to_string(component.major) + "." + ZeroPad(component.minor, 2);
        }
        return text;
    });
}

}  // namespace toverin
