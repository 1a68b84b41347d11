#include "tools/EquivalenceSite.h"

#include <filesystem>
#include <stdexcept>

#include "app/Ini.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"

namespace toverin {

namespace {

namespace fs = std::filesystem;

// Writes one record file from empty, in accelerated mode.
void WriteRecords(const std::string& path, int fileNumber,
                  const std::vector<std::string>& records) {
    if (engine::EngineFile::Create(path, CreationRecord(fileNumber)) != btr::kSuccess)
        throw std::runtime_error("cannot create " + path);
    engine::EngineFile file;
    if (file.Open(path, btr::kOpenAccelerated) != btr::kSuccess)
        throw std::runtime_error("cannot open " + path);
    std::string key(255, '\0');
    for (std::string record : records)
        if (file.Call(btr::kInsert, record, key, 0) != btr::kSuccess)
            throw std::runtime_error("cannot insert into " + path);
    if (file.Close() != btr::kSuccess) throw std::runtime_error("cannot close " + path);
}

bool WriteConfiguration(const std::string& root, int stations) {
    IniDocument site;
    site.Set("Site", "Lib", "Site d'équivalence");
    site.Set("Site", "NbBase", "1");
    site.Set("Base_01", "Lib", "Radio Équivalence");
    site.Set("Base_01", "Actif", "1");
    site.Set("Base_01", "NbStation", std::to_string(stations));
    site.Set("Base_01", "Dossier_Data", "C:\\KV_Data\\");
    site.Set("Base_01", "Dossier_Config_Global", "C:\\KV_Config\\");
    site.Set("Base_01", "Dossier_Local", "C:\\KV_Local\\");
    site.Set("Base_01", "Dossier_Log", "C:\\Logs\\");
    IniDocument systeme;
    systeme.Set("Base_01", "Lib", "Radio Équivalence");
    for (const char* folder : {"C/KV_Data", "C/KV_Config", "C/KV_Local", "C/Logs", "Settings"})
        fs::create_directories(root + folder);
    return site.Save(root + "Settings/KV3_Config.ini") &&
           systeme.Save(root + "C/KV_Config/KV3_Systeme.ini");
}

}  // namespace

std::string EquivalenceSiteSong(int station, int row, int rows) {
    return "000" + ZeroPad(static_cast<long long>(station - 1) * rows + row, 5);
}

EquivalenceSiteResult CreateEquivalenceSite(const std::string& rootFolder, int stations, int rows) {
    EquivalenceSiteResult result;
    struct UnsyncedWrites {
        bool before = engine::SyncedWrites();
        UnsyncedWrites() { engine::SetSyncedWrites(false); }
        ~UnsyncedWrites() { engine::SetSyncedWrites(before); }
    } unsynced;
    std::string root = ReplaceAll(rootFolder, "\\", "/");
    if (!root.empty() && root.back() != '/') root += '/';
    try {
        if (stations < 1 || stations > 10 || rows < 1 ||
            static_cast<long long>(stations) * rows > 99999)
            throw std::runtime_error("stations 1..10 and at most 99999 songs in all");
        if (!WriteConfiguration(root, stations))
            throw std::runtime_error("cannot write the configuration under " + root);
        result.dataFolder = root + "C/KV_Data/";
        WriteRecords(result.dataFolder + StationFileName(0, 1), 0, {BlankRecord(0)});
        for (int s = 1; s <= stations; ++s) {
            std::vector<std::string> songs;
            for (int r = 1; r <= rows; ++r) {
                if (s == 4 && r % 1000 == 0) continue;
                std::string song = BlankRecord(22);
                RecordView v(22, song);
                v.SetText("SongId", EquivalenceSiteSong(s, r, rows));
                v.SetText("Title", "Titre " + std::to_string(r) + " é");
                v.SetText("SecondText", "Station " + std::to_string(s));
                v.SetText("Type", "000");
                v.SetText("Category", "C" + std::to_string(s));
                songs.push_back(std::move(song));
            }
            std::string label = BlankRecord(21);
            RecordView v(21, label);
            v.SetText("Header", "CATEG");
            v.SetText("Code", "C" + std::to_string(s));
            v.SetText("Label", "Catégorie " + std::to_string(s));
            WriteRecords(result.dataFolder + StationFileName(22, s), 22, songs);
            WriteRecords(result.dataFolder + StationFileName(21, s), 21, {label});
            result.records += static_cast<long long>(songs.size()) + 1;
        }
        std::vector<std::string> table;
        for (int r = 1; r <= rows; ++r) {
            std::string row = BlankRecord(46);
            RecordView v(46, row);
            if (!v.SetNumber("NoLig", r)) throw std::runtime_error("row number too wide");
            for (int s = 1; s <= stations; ++s) {
                v.SetRaw("SongId",
                         r % 97 == 0 && s == 7 ? FixedWidth("C7", 13)
                                               : "     " + EquivalenceSiteSong(s, r, rows),
                         s - 1);
            }
            table.push_back(std::move(row));
        }
        WriteRecords(result.dataFolder + StationFileName(46, 1), 46, table);
        result.records += rows;
        result.ok = true;
    } catch (const std::exception& e) {
        result.error = e.what();
    }
    return result;
}

}  // namespace toverin
