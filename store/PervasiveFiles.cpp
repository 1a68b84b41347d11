// Opening, closing and creating the record files of a base. A file that cannot be opened leaves
// its slot closed, so that any later call on it ends the program rather than write through a
// stale position block; the small files 40..49, which the other programs of the suite create
// lazily, are created empty when missing.
#include <algorithm>
#include <cstring>

#include "app/Errors.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/PervasiveState.h"

namespace toverin {

using namespace pervasive;

namespace {

// The engine reads a path from the key buffer, whose length is one byte.
constexpr size_t kMaxPathLength = 254;

bool CreatedWhenMissing(int fileNumber) {
    return fileNumber >= 40 && fileNumber <= 49;
}

}  // namespace

std::string DataFilePath(int base, int fileNumber, int station) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return "";
    std::string name = StationFileName(fileNumber, station);
    if (name.empty()) return "";
    return ExistingCase(JoinPath(Site().bases[base].dataFolder, name));
}

int16_t SlotBank::OuvertureFichierBTrieve(int base, int fileNumber, const std::string& path,
                                          uint32_t recordLength, int station, int8_t openMode) {
    TraceProcedure(kModuleOpen, "OuvertureFichierBTrieve");
    const std::string procedure = ProcName("OuvertureFichierBTrieve", kModuleOpen);
    return Guarded<int16_t>(procedure, btr::kIoError, [&]() -> int16_t {
        if (station < 1) station = 1;
        if (!ValidSlot(base, fileNumber, station) || fileNumber > kLastRealFile) {
            GestionDesErreurs(9, "Subscript out of range: file " + std::to_string(fileNumber),
                              procedure);
            return btr::kInvalidOperation;
        }
        Slot& slot = SlotAt(base, fileNumber, station);
        if (slot.open) FermetureFichierBTrieve(base, fileNumber, station);
        slot.path = path;
        slot.recordLength = recordLength;

        int16_t status;
        if (!FileExists(path)) {
            status = btr::kFileNotFound;
        } else if (path.size() > kMaxPathLength) {
            status = btr::kInvalidFileName;
        } else {
            std::string data(RecordLengthOf(slot, fileNumber), ' ');
            auto length = static_cast<uint32_t>(data.size());
            std::string key = path;
            key.push_back('\0');
            slot.positionBlock.assign(btr::kPositionBlockSize, ' ');
            status = RecordEngine()(btr::kOpen, slot.positionBlock.data(), data.data(), &length,
                                    key.data(), static_cast<uint8_t>(key.size()), openMode);
        }
        lastStatus_ = status;
        slot.open = status == btr::kSuccess;
        if (slot.open) ++OpenSlotsInProcess();
        if (!slot.open && !quiet_ && !browsing_) {
            if (status == btr::kFileNotFound)
                AppendToNewestHistoryLine(base, " |" + std::to_string(fileNumber));
            TraceLog("Err: " + FileNameOf(path) + ": Unable to open: " + path +
                     " |Status: " + std::to_string(status));
            ErreurBTrieve(base, fileNumber, station, "",
                          FileNameOf(path) + ": Impossible d'ouvrir: " + path, false, btr::kOpen);
        }
        return status;
    });
}

void SlotBank::FermetureFichierBTrieve(int base, int fileNumber, int station) {
    TraceProcedure(kModuleOpen, "FermetureFichierBTrieve");
    const std::string procedure = ProcName("FermetureFichierBTrieve", kModuleOpen);
    Guarded<int>(procedure, 0, [&] {
        if (station < 1) station = 1;
        if (!ValidSlot(base, fileNumber, station)) return 0;
        Slot& slot = SlotAt(base, fileNumber, station);
        if (!slot.open) return 0;
        slot.open = false;
        --OpenSlotsInProcess();
        uint32_t length = 0;
        char key[1] = {0};
        int16_t status =
            RecordEngine()(btr::kClose, slot.positionBlock.data(), nullptr, &length, key, 0, 0);
        lastStatus_ = status;
        slot.positionBlock.assign(btr::kPositionBlockSize, ' ');
        if (status != btr::kSuccess)
            TraceLog("Err: Close File: " + slot.path + " |Status: " + std::to_string(status));
        return 0;
    });
}

bool SlotBank::OpenCatalogueFile(int base, int fileNumber, int station, const std::string& path,
                                 int8_t openMode) {
    if (!ValidSlot(base, fileNumber, station)) return false;
    // The slot names the file asked for, even a missing one (a later call on the slot names
    // it), and never holds another.
    FermetureFichierBTrieve(base, fileNumber, station);
    SlotAt(base, fileNumber, station).path = path;
    if (!path.empty() && !FileExists(path) && CreatedWhenMissing(fileNumber)) {
        TraceLog("File: " + path + " not found |Create empty structure");
        CreationFichierBTrieve(path, fileNumber);
    }
    if (!path.empty() && FileExists(path)) {
        OuvertureFichierBTrieve(base, fileNumber, path, CatalogueEntryFor(fileNumber).recordLength,
                                station, openMode);
    } else {
        TraceLog("Err: File: " + path + " not found");
    }
    return IsFileOpen(base, fileNumber, station);
}

bool SlotBank::FichierPervasiveOuvrir(int base, int firstStation, int lastStation, int fileNumber,
                                      int8_t openMode) {
    TraceProcedure(kModule, "FichierPervasiveOuvrir");
    const std::string procedure = ProcName("FichierPervasiveOuvrir", kModule);
    return Guarded<bool>(procedure, false, [&] {
        if (!CatalogueEntryFor(fileNumber).Exists()) return false;
        bool all = true;
        for (int station = std::max(firstStation, 1); station <= lastStation; ++station) {
            if (!OpenCatalogueFile(base, fileNumber, station,
                                   DataFilePath(base, fileNumber, station), openMode))
                all = false;
        }
        return all;
    });
}

bool SlotBank::FichierPervasiveOuvrirNinSight(int base, int fileNumber) {
    TraceProcedure(kModule, "FichierPervasiveOuvrirNinSight");
    const std::string procedure = ProcName("FichierPervasiveOuvrirNinSight", kModule);
    return Guarded<bool>(procedure, false, [&] {
        if (!CatalogueEntryFor(fileNumber).Exists()) return false;
        if (base < 0 || base >= static_cast<int>(Site().bases.size())) return false;
        const std::string& folder = Site().bases[base].ninSightFolder;
        if (folder.empty()) {
            TraceLog("Err: NinSight: no folder for base " + std::to_string(base + 1) +
                     " (Dossier_NinSight, " + BaseSection(base) + ")");
            return false;
        }
        return OpenCatalogueFile(base, fileNumber, 1,
                                 JoinPath(folder, StationFileName(fileNumber, 1)));
    });
}

void SlotBank::FichierPervasiveFermer(int base, int firstStation, int lastStation, int fileNumber) {
    TraceProcedure(kModule, "FichierPervasiveFermer");
    Guarded<int>(ProcName("FichierPervasiveFermer", kModule), 0, [&] {
        for (int station = std::max(firstStation, 1); station <= lastStation; ++station)
            FermetureFichierBTrieve(base, fileNumber, station);
        return 0;
    });
}

int16_t CreationFichierBTrieve(const std::string& path, int fileNumber) {
    TraceProcedure(kModule, "CreationFichierBTrieve");
    const std::string procedure = ProcName("CreationFichierBTrieve", kModule);
    return Guarded<int16_t>(procedure, btr::kIoError, [&]() -> int16_t {
        btr::PbTBtrFileBuf fileBuf = CreationRecord(fileNumber);
        std::string block(btr::kPositionBlockSize, ' ');
        std::string key = path;
        auto create = [&]() -> int16_t {
            if (key.size() > kMaxPathLength + 1) return btr::kInvalidFileName;
            btr::PbTBtrFileBuf buffer = fileBuf;
            uint32_t length = sizeof buffer;
            return RecordEngine()(btr::kCreate, block.data(), &buffer, &length, key.data(),
                                  static_cast<uint8_t>(key.size()), 0);
        };
        int16_t status = create();
        if (status != btr::kSuccess) {
            // Engines that read the name as a C string need it terminated; ours drops the
            // trailing blank, so the retry names the same file either way.
            key = path + " ";
            status = create();
        }
        if (status != btr::kSuccess) {
            TraceLog("Err: Create File: " + path + " |PbSBtrPosBulk$: " + Trim(Printable(block)) +
                     " |PbTBtrFileBuf.RecLen: " + std::to_string(fileBuf.RecLen) +
                     " |PbTBtrFileBuf.IndxCnt: " + std::to_string(fileBuf.IndxCnt) +
                     " |BufferCle: " + key + " |LngCle: " + std::to_string(key.size()));
        }
        return status;
    });
}

}  // namespace toverin
