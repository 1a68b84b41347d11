// The song equivalence table of a base: which song (or category) of each station stands for the
// same thing. One row per set of equivalents, one column per station; kept in file 46 of
// station 1 of the base. The grid shows texts; its hidden twin holds the codes: a song's
// 8-character code, or "CATEG" followed by a category's 5-character code.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/Pervasive.h"

namespace toverin {

class EquivalenceTable {
  public:
    // At most this many station columns are stored per record.
    static constexpr int kSlots = 26;

    struct Cell {
        std::string code;   // "" (empty), a song code, or "CATEG" + category code (Windows-1252)
        std::string shown;  // what the grid shows (UTF-8): "title - second text" or
                            // "Catégorie: label"; may be partial when the song or category is gone
        bool empty() const { return code.empty(); }
    };
    struct Row {
        int number = 0;           // the row number stored in the record (key of file 46)
        std::vector<Cell> cells;  // index = station - 1
    };

    // Loads file 46 of station 1 of `base` through `bank` (songs from file 22, categories from
    // file 21 of station 1). False when the file cannot be read; the table is then empty.
    bool Load(SlotBank& bank, int base);
    // Writes the table back: every record deleted, one record per row with a non-empty cell.
    bool Save(SlotBank& bank, int base);

    // The matching rule used by the music-schedule duplication: `code`, trimmed, looked up in the
    // source station's column from the first row down; the first row that matches wins; its
    // target station's cell is the replacement. Nothing when no row matches or the target cell
    // is empty. A replacement starting with "CATEG" stands for a category.
    std::optional<std::string> Match(int sourceStation, int targetStation,
                                     std::string_view code) const;

    const std::vector<Row>& rows() const { return rows_; }
    std::vector<Row>& rows() { return rows_; }
    bool modified() const { return modified_; }
    void setModified(bool modified) { modified_ = modified; }

  private:
    std::vector<Row> rows_;
    bool modified_ = false;
};

}  // namespace toverin
