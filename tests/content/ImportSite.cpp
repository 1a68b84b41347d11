#include "tests/content/ImportSite.h"

#include <filesystem>
#include <functional>

#include "app/Paths.h"
#include "app/Site.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/engine/EngineFile.h"

namespace toverin::testing {

ImportSite::ImportSite() {
    ResetSite();
    ClearDriveTable();
    ResetRecordAccess();
    SetSuiteRoot(dir.folder());
    WriteFile(
        dir.file("Settings/KV3_Config.ini"),
        "[Site]\r\nLib=Site de test\r\nNbBase=1\r\n[Base_01]\r\nLib=Radio Test\r\nActif=1\r\n"
        "NbStation=2\r\nDossier_Data=C:\\KV_Data\\\r\nDossier_Config_Global=C:\\KV_Config\\\r\n"
        "Dossier_Local=C:\\KV_Local\\\r\nDossier_Shared=C:\\KV_Shared\\\r\n"
        "Dossier_Log=C:\\Logs\\\r\n");
    WriteFile(dir.file("C/KV_Config/KV3_Systeme.ini"), "[Base_01]\r\nLib=Radio Test\r\n");
    std::filesystem::create_directories(dir.path() / "C/KV_Data");
    engine::SetSyncedWrites(false);  // the test's own files need not wait for the disk
    for (int f : std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 20, 21, 22, 25, 26, 30, 31}) {
        for (int s = 1; s <= (CatalogueEntryFor(f).perStation == 'O' ? 2 : 1); ++s) {
            EXPECT_EQ(engine::EngineFile::Create(DataPath(f, s), CreationRecord(f)), 0);
            // A file's first open settles its journal mode in its header; done here, the
            // snapshots below change only when records do.
            ReadAll(f, s);
        }
    }
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    EXPECT_EQ(InitGeneralSite(), SiteInitResult::Ok);
}

ImportSite::~ImportSite() {
    engine::SetSyncedWrites(true);
    ResetRecordAccess();
    ResetSite();
}

std::string ImportSite::DataPath(int file, int station) const {
    return dir.folder() + "C/KV_Data/" + StationFileName(file, station);
}

void ImportSite::Insert(int file, int station, const std::vector<std::string>& records) {
    engine::EngineFile f;
    ASSERT_EQ(f.Open(DataPath(file, station)), 0);
    for (std::string record : records) {
        std::string key(255, ' ');
        ASSERT_EQ(f.Call(btr::kInsert, record, key, 0), 0);
    }
}

std::vector<std::string> ImportSite::ReadAll(int file, int station, int key) const {
    std::vector<std::string> out;
    engine::EngineFile f;
    if (f.Open(DataPath(file, station), btr::kOpenReadOnly) != 0) return out;
    std::string buffer(255, '\0');
    std::string data(CatalogueEntryFor(file).recordLength, ' ');
    int16_t st = f.Call(btr::kGetFirst, data, buffer, static_cast<int8_t>(key));
    while (st == 0) {
        out.push_back(data);
        st = f.Call(btr::kGetNext, data, buffer, static_cast<int8_t>(key));
    }
    return out;
}

std::string ImportSite::Find(int file, int station, int keyNumber, const std::string& key) const {
    engine::EngineFile f;
    if (f.Open(DataPath(file, station), btr::kOpenReadOnly) != 0) return "";
    std::string buffer = key;
    buffer.resize(255, '\0');
    std::string data(CatalogueEntryFor(file).recordLength, ' ');
    return f.Call(btr::kGetEqual, data, buffer, static_cast<int8_t>(keyNumber)) == 0 ? data : "";
}

std::map<std::string, std::string> ImportSite::Snapshot() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path() / "C/KV_Data")) {
        const std::string bytes = ReadFile(entry.path());
        files[entry.path().filename().string()] = std::to_string(bytes.size()) + " bytes, hash " +
                                                  std::to_string(std::hash<std::string>()(bytes));
    }
    return files;
}

std::string ImportSite::Delivery(const std::string& name, const std::string& body) const {
    const std::string path = dir.file(name);
    WriteFile(path, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n" + body +
                        "</KV3>\r\n");
    return path;
}

}  // namespace toverin::testing
