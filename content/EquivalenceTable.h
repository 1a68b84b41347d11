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
        // A cell of blanks is empty too: it is neither stored nor matched.
        bool empty() const { return code.find_first_not_of(' ') == std::string::npos; }
    };
    struct Row {
        int number = 0;           // the row number stored in the record (key of file 46)
        std::vector<Cell> cells;  // index = station - 1; stations past the end are empty
        bool empty() const;
    };
    // Row numbers are stored on five digits.
    static constexpr int kMaxRowNumber = 99999;

    // Loads file 46 of station 1 of `base` through `bank` (songs from file 22, categories from
    // file 21 of station 1). False when the file cannot be read; the table is then empty.
    bool Load(SlotBank& bank, int base);
    // Writes the table back: every record deleted, one record per row with a non-empty cell.
    bool Save(SlotBank& bank, int base);
    // False when the last Load met a read error: the table holds what could be read.
    bool complete() const { return complete_; }

    // The matching rule used by the music-schedule duplication: `code`, trimmed, looked up in the
    // source station's column from the first row down; the first row that matches wins; its
    // target station's cell is the replacement. Nothing when no row matches or the target cell
    // is empty. A replacement starting with "CATEG" stands for a category.
    std::optional<std::string> Match(int sourceStation, int targetStation,
                                     std::string_view code) const;

    // Rows in grid order (row number ascending); the editing calls below keep that order.
    const std::vector<Row>& rows() const { return rows_; }
    std::vector<Row>& rows() { return rows_; }
    bool modified() const { return modified_; }
    void setModified(bool modified) { modified_ = modified; }

    // The row numbered `number`, or nullptr.
    const Row* FindRow(int number) const;
    // The cell of row `number` and `station`; an empty cell when there is none.
    const Cell& CellAt(int number, int station) const;
    int LastRowNumber() const { return rows_.empty() ? 0 : rows_.back().number; }
    // Editing, as the grid does it; each marks the table modified. A row left without a
    // non-empty cell goes.
    void SetCell(int number, int station, Cell cell);
    void ClearCell(int number, int station);
    void ClearRow(int number);

  private:
    std::vector<Row>::iterator LowerBound(int number);

    std::vector<Row> rows_;
    bool modified_ = false;
    bool complete_ = true;
};

}  // namespace toverin
