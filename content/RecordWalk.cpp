#include "content/RecordWalk.h"

#include <algorithm>

#include "app/Log.h"
#include "app/Paths.h"
#include "store/Catalogue.h"

namespace toverin {

RecordWalkResult WalkRecords(const RecordWalk& walk,
                             const std::function<void(const std::string& record)>& each) {
    RecordWalkResult result;
    SlotBank& bank = *walk.bank;
    const size_t keyLength =
        static_cast<size_t>(std::max(1, KeyLength(walk.fileNumber, walk.keyNumber)));
    const std::string high = walk.high.substr(0, std::min(walk.high.size(), keyLength));
    std::string data;
    std::string key = walk.low;
    std::string lastKey;
    bool resuming = false;
    bank.BTRieve(walk.base, btr::kGetGreaterOrEqual, data, key, walk.keyNumber, walk.fileNumber,
                 walk.station, walk.caller);
    for (;;) {
        int16_t status = bank.LastStatus();
        if (status == btr::kEndOfFile) break;
        if (status != btr::kSuccess) {
            ++result.failedReads;
            // Reported by the layer already; one more try past the last record read.
            if (resuming) break;
            resuming = true;
            key = lastKey.empty() ? walk.low : lastKey;
            bank.BTRieve(walk.base, lastKey.empty() ? btr::kGetGreaterOrEqual : btr::kGetGreater,
                         data, key, walk.keyNumber, walk.fileNumber, walk.station, walk.caller);
            continue;
        }
        resuming = false;
        lastKey.assign(key, 0, std::min(key.size(), keyLength));
        if (!high.empty() && lastKey.compare(0, high.size(), high) > 0) break;
        ++result.records;
        each(data);
        bank.BTRieve(walk.base, btr::kGetNext, data, key, walk.keyNumber, walk.fileNumber,
                     walk.station, walk.caller);
    }
    return result;
}

OpenedFiles::~OpenedFiles() {
    for (const auto& [fileNumber, station] : opened_)
        bank_.FermetureFichierBTrieve(base_, fileNumber, station);
}

bool OpenedFiles::Open(int fileNumber, int station) {
    if (bank_.IsFileOpen(base_, fileNumber, station)) return true;
    if (!bank_.FichierPervasiveOuvrir(base_, station, station, fileNumber)) return false;
    opened_.emplace_back(fileNumber, station);
    return true;
}

}  // namespace toverin

namespace toverin {

bool OpenedFiles::OpenForRewrite(int fileNumber, int station) {
    if (bank_.IsFileOpen(base_, fileNumber, station)) return true;
    const std::string path = DataFilePath(base_, fileNumber, station);
    if (path.empty()) return false;
    if (!FileExists(path)) return Open(fileNumber, station);  // made empty, as a normal open does
    if (bank_.OuvertureFichierBTrieve(base_, fileNumber, path,
                                      CatalogueEntryFor(fileNumber).recordLength, station,
                                      btr::kOpenAccelerated) != btr::kSuccess)
        return false;
    opened_.emplace_back(fileNumber, station);
    return true;
}

int16_t OpenedFiles::Close(int fileNumber, int station) {
    auto it = std::find(opened_.begin(), opened_.end(), std::make_pair(fileNumber, station));
    if (it == opened_.end()) return btr::kSuccess;
    opened_.erase(it);
    bank_.FermetureFichierBTrieve(base_, fileNumber, station);
    return bank_.LastStatus();
}

}  // namespace toverin
