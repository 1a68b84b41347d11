#include "tests/operations/SiteFixture.h"

#include "app/Paths.h"
#include "app/Text.h"
#include "operations/OperationState.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"

namespace toverin::testing {

namespace {

// The field each history file's dating key starts with.
const std::map<int, std::string> kDateField = {
    {7, "Date_Passage"}, {33, "Date"}, {34, "Date"}, {35, "Date"}};

}  // namespace

SiteFixture::SiteFixture() {
    ResetSite();
    ClearDriveTable();
    ResetRecordAccess();
    Operations() = OperationFlags{};
    SetSuiteRoot(dir.folder());
}

SiteFixture::~SiteFixture() {
    ResetRecordAccess();
    ResetSite();
}

void SiteFixture::MakeSite(int stations) {
    testing::WriteFile(
        dir.file("Settings/KV3_Config.ini"),
        "[Site]\r\nLib=Site de test\r\nNbBase=1\r\n[Base_01]\r\nLib=Radio Test\r\nActif=1\r\n"
        "NbStation=" +
            std::to_string(stations) +
            "\r\nDossier_Data=C:\\KV_Data\\\r\nDossier_Config_Global=C:\\KV_Config\\\r\n"
            "Dossier_Local=C:\\KV_Local\\\r\nDossier_Log=C:\\Logs\\\r\n");
    testing::WriteFile(dir.file("C/KV_Config/KV3_Systeme.ini"), "[Base_01]\r\nLib=Radio Test\r\n");
    WriteFile(0, 1, {Record(0, 1), Record(0, 2), Record(0, 3)});
    // The backup roots exist: the default local one and the one Options() names.
    std::filesystem::create_directories(dir.file("C/KV_Local/KV_Data"));
    std::filesystem::create_directories(dir.file("C/KV_Local/Data"));
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
}

std::string SiteFixture::DataPath(int f, int station) const {
    return dir.folder() + "C/KV_Data/" + StationFileName(f, station);
}

void SiteFixture::WriteFile(int f, int station, const std::vector<std::string>& records) {
    WriteRecordFile(DataPath(f, station), f, records);
}

void SiteFixture::WriteRecordFile(const std::string& path, int f,
                                  const std::vector<std::string>& records) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ASSERT_EQ(engine::EngineFile::Create(path, CreationRecord(f)), 0) << path;
    // The test data need not wait for the disk; the operations under test do.
    engine::SetSyncedWrites(false);
    {
        engine::EngineFile file;
        ASSERT_EQ(file.Open(path), 0);
        for (std::string record : records) {
            std::string key(255, ' ');
            ASSERT_EQ(file.Call(btr::kInsert, record, key, 0), 0) << path;
        }
    }
    engine::SetSyncedWrites(true);
}

std::string SiteFixture::Record(int f, int n, const std::string& date) {
    std::string record = BlankRecord(f);
    // Every byte of the first key made unique from n, then the date where the file is dated.
    const auto keys = KeysOf(f);
    std::string unique = ZeroPad(n, 8);
    for (const auto& seg : keys[0]) {
        for (uint16_t i = 0; i < seg.length; ++i)
            record[seg.position - 1 + i] = unique[(i + seg.length) % unique.size()];
    }
    if (!keys[0].empty()) {
        const auto& first = keys[0][0];
        std::string tail = ZeroPad(n, std::min<int>(first.length, 18));
        record.replace(first.position - 1 + first.length - tail.size(), tail.size(), tail);
    }
    auto field = kDateField.find(f);
    if (field != kDateField.end() && !date.empty())
        RecordView(f, record).SetText(field->second, date);
    return record;
}

std::vector<std::string> SiteFixture::ReadAll(const std::string& path) {
    std::vector<std::string> out;
    engine::EngineFile file;
    if (file.Open(path, btr::kOpenReadOnly) != 0) return out;
    std::string key(255, '\0');
    std::string data(8192, ' ');
    int16_t st = file.Call(btr::kGetFirst, data, key, 0);
    while (st == 0) {
        out.push_back(data);
        data.assign(8192, ' ');
        st = file.Call(btr::kGetNext, data, key, 0);
    }
    return out;
}

BackupOptions SiteFixture::Options() const {
    BackupOptions o = LoadBackupOptions(0);
    o.serverDataFolder = dir.folder() + "C/KV_Data/";
    o.localBackupFolder = dir.folder() + "C/KV_Local/Data/";
    o.historyDaysText = "7";
    return o;
}

}  // namespace toverin::testing
