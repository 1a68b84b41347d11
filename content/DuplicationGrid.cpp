#include "content/DuplicationGrid.h"

#include "app/Errors.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/Text.h"

namespace toverin {
namespace {

std::string StationSection(int station) {
    return "Station_" + ZeroPad(station, 2);
}

constexpr const char* kKey = "Duplication";

}  // namespace

DuplicationGrid::DuplicationGrid() {
    for (auto& base : cells_)
        for (auto& station : base) station.set();
}

std::bitset<kGridCells>* DuplicationGrid::Station(int base, int station) {
    if (base < 0 || base >= kMaxBases || station < 1 || station > kMaxStations) return nullptr;
    return &cells_[static_cast<size_t>(base)][static_cast<size_t>(station - 1)];
}

const std::bitset<kGridCells>* DuplicationGrid::Station(int base, int station) const {
    return const_cast<DuplicationGrid*>(this)->Station(base, station);
}

bool DuplicationGrid::Cell(int base, int station, int index) const {
    const auto* cells = Station(base, station);
    return cells && index >= 0 && index < kGridCells && cells->test(static_cast<size_t>(index));
}

void DuplicationGrid::SetCell(int base, int station, int index, bool allowed) {
    auto* cells = Station(base, station);
    if (cells && index >= 0 && index < kGridCells) cells->set(static_cast<size_t>(index), allowed);
}

bool DuplicationGrid::Allowed(int base, int station, int weekday, int hour) const {
    if (weekday < 1 || weekday > kGridWeekdays || hour < 0 || hour >= kGridHours) return false;
    return Cell(base, station, CellIndex(weekday, hour));
}

void DuplicationGrid::Set(int base, int station, int weekday, int hour, bool allowed) {
    if (weekday < 1 || weekday > kGridWeekdays || hour < 0 || hour >= kGridHours) return;
    SetCell(base, station, CellIndex(weekday, hour), allowed);
}

std::string DuplicationGrid::StationText(int base, int station) const {
    std::string text(kGridCells, '0');
    for (int i = 0; i < kGridCells; ++i)
        if (Cell(base, station, i)) text[static_cast<size_t>(i)] = '1';
    return text;
}

void DuplicationGrid::SetStationText(int base, int station, std::string_view text) {
    for (int i = 0; i < kGridCells; ++i)
        SetCell(base, station, i,
                static_cast<size_t>(i) < text.size() && text[static_cast<size_t>(i)] == '1');
}

void DuplicationGrid::SetAll(int base, int station, bool allowed) {
    if (auto* cells = Station(base, station)) allowed ? cells->set() : cells->reset();
}

std::string DuplicationSettingsFile() {
    return NomFichierSettings("_Duplication", ".Ini");
}

void InitSettingsDuplication(DuplicationGrid& grid) {
    Guarded("InitSettingsDuplication:FrmSetup", 0, [&] {
        const std::string file = DuplicationSettingsFile();
        IniDocument ini;
        if (!IniDocument::Load(file, ini)) TraceLog("Err: Duplication grid: cannot read " + file);
        for (int station = 1; station <= kMaxStations; ++station) {
            std::string value;
            if (!ini.Get(StationSection(station), kKey, value)) value.assign(kGridCells, '1');
            for (int base = 0; base < kMaxBases; ++base) grid.SetStationText(base, station, value);
        }
        return 0;
    });
}

bool SaveSettingsDuplication(const DuplicationGrid& grid, int base) {
    return Guarded("SaveSettingsDuplication:FrmSetup", false, [&] {
        const std::string file = DuplicationSettingsFile();
        IniDocument ini;
        IniDocument::Load(file, ini);
        for (int station = 1; station <= kMaxStations; ++station)
            ini.Set(StationSection(station), kKey, grid.StationText(base, station));
        if (!ini.Save(file)) {
            TraceLog("Err: Duplication grid: cannot write " + file);
            return false;
        }
        TraceLog("Duplication grid saved: " + file);
        return true;
    });
}

}  // namespace toverin
