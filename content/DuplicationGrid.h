// The weekly duplication grid: per base, station, weekday (Monday first) and hour, whether the
// music-schedule duplication may clear and fill that hour at all. Kept in one settings file for
// the whole site (NomFichierSettings("_Duplication", ".Ini")): section "Station_01" ..
// "Station_10", key "Duplication", 168 characters, seven runs of 24 hours, "1" for an allowed
// hour and anything else for a closed one. Every base reads the same sections.
#pragma once

#include <array>
#include <bitset>
#include <string>
#include <string_view>

#include "app/Site.h"

namespace toverin {

inline constexpr int kGridWeekdays = 7;
inline constexpr int kGridHours = 24;
inline constexpr int kGridCells = kGridWeekdays * kGridHours;  // 168

class DuplicationGrid {
  public:
    // Every hour open, as for a station without a value in the file.
    DuplicationGrid();

    // `weekday` 1 (Monday) .. 7, `hour` 0..23. Out-of-range indices read as closed.
    bool Allowed(int base, int station, int weekday, int hour) const;
    void Set(int base, int station, int weekday, int hour, bool allowed);
    // The running number of a cell in the 168-character form (weekday-major, hour-minor).
    static int CellIndex(int weekday, int hour) { return (weekday - 1) * kGridHours + hour; }
    bool Cell(int base, int station, int index) const;
    void SetCell(int base, int station, int index, bool allowed);

    // The station's 168 characters, "1" allowed, "0" closed.
    std::string StationText(int base, int station) const;
    // Reads the 168-character form: "1" allows the hour, any other character and any position
    // beyond the end of a short text closes it.
    void SetStationText(int base, int station, std::string_view text);
    // Every hour of the station open or closed.
    void SetAll(int base, int station, bool allowed);

  private:
    std::bitset<kGridCells>* Station(int base, int station);
    const std::bitset<kGridCells>* Station(int base, int station) const;
    std::array<std::array<std::bitset<kGridCells>, kMaxStations>, kMaxBases> cells_;
};

// The grid's settings file.
std::string DuplicationSettingsFile();
// Loads the grid of every base from the settings file (a missing file or value leaves every
// hour of that station open).
void InitSettingsDuplication(DuplicationGrid& grid);
// Writes the stations of `base`'s grid back to the settings file in the same form. False when
// the file could not be written.
bool SaveSettingsDuplication(const DuplicationGrid& grid, int base);

}  // namespace toverin
