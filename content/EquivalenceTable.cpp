// Loading and saving the equivalence table (file 46 of station 1), its editing and its matching
// rule. Cells are shown through station 1's files, which hold the table; a code station 1 does
// not know is shown through its own column's station, as that station's tree showed it when it
// was dropped.
#include "content/EquivalenceTable.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "app/Errors.h"
#include "app/Log.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/EquivalenceCatalogue.h"
#include "content/RecordWalk.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

constexpr int kFile = 46;
constexpr int kLabels = 21;
constexpr int kSongs = 22;
constexpr size_t kCategoryWidth = 5;
constexpr size_t kSongWidth = 8;
constexpr std::string_view kCategoryHead = "CATEG";
const char* const kModule = "Frm_Main";

// "Procedure:Module", and the step mark of a call site when there is one.
std::string Caller(const char* procedure, const char* mark = "") {
    std::string caller = std::string(procedure) + ":" + kModule;
    return *mark ? caller + ":" + mark : caller;
}

std::string_view TrimmedView(std::string_view text) {
    size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}

bool IsCategoryCode(std::string_view code) {
    return code.substr(0, kCategoryHead.size()) == kCategoryHead;
}

bool IsBlank(std::string_view bytes) {
    return bytes.find_first_not_of(' ') == std::string_view::npos;
}

// A field's bytes in a record, its layout looked up once: a load reads tens of thousands of
// records, and a field found by name each time costs more than the rest of the reading.
class FieldOf {
  public:
    FieldOf(int file, std::string_view name, int occurrence = 0)
        : field_(*LayoutFor(file).Find(name, occurrence)) {}
    std::string_view In(std::string_view record, int part = -1) const {
        std::string_view bytes = record.substr(field_.offset, field_.width);
        if (part < 0) return bytes;
        size_t at = 0;
        for (int p = 0; p < part; ++p) at += field_.parts[static_cast<size_t>(p)];
        return bytes.substr(at, field_.parts[static_cast<size_t>(part)]);
    }
    std::string Utf8(std::string_view record) const { return Trim(Utf8FromCp1252(In(record))); }

  private:
    const Field& field_;
};

// The texts of the codes of a table: station 1's files first, then, for the codes station 1 does
// not know, their own column's station. A station whose cells name a good part of its songs file
// has the file read through once; a few codes are each read by their key.
class CellTexts {
  public:
    CellTexts(SlotBank& bank, int base, OpenedFiles& files)
        : bank_(bank), base_(base), files_(files) {}

    void Read(const std::vector<EquivalenceTable::Row>& rows) {
        using Wanted = std::map<std::pair<int, int>, std::set<std::string>>;  // (station, file)
        auto collect = [&](bool ownStation) {
            Wanted wanted;
            const int stations = Site().bases[static_cast<size_t>(base_)].stationCount;
            for (const auto& row : rows) {
                for (size_t i = 0; i < row.cells.size() && static_cast<int>(i) < stations; ++i) {
                    if (row.cells[i].empty()) continue;
                    const int station = ownStation ? static_cast<int>(i) + 1 : 1;
                    const std::string key = FileKey(row.cells[i].code);
                    if (ownStation && (station == 1 || texts_.count({1, key}))) continue;
                    wanted[{station, IsCategoryCode(key) ? kLabels : kSongs}].insert(key);
                }
            }
            for (const auto& [where, keys] : wanted) ReadFile(where.first, where.second, keys);
        };
        collect(false);
        collect(true);
    }

    // A code whose song or category could not be read shows nothing; it keeps its code.
    std::string Shown(int station, const std::string& code) const {
        const std::string key = FileKey(code);
        auto found = texts_.find({1, key});
        if (found == texts_.end()) found = texts_.find({station, key});
        return found != texts_.end() ? found->second : "";
    }

  private:
    static std::string FileKey(const std::string& code) {
        if (IsCategoryCode(code))
            return std::string(kCategoryHead) +
                   FixedWidth(std::string_view(code).substr(kCategoryHead.size()), kCategoryWidth);
        return FixedWidth(code, kSongWidth);
    }

    static std::string Text(int file, const std::string& data) {
        static const FieldOf label(kLabels, "Label"), title(kSongs, "Title"),
            second(kSongs, "SecondText");
        if (file == kLabels) return CategoryCellText(label.Utf8(data));
        return SongCellText(title.Utf8(data), second.Utf8(data));
    }

    void ReadFile(int station, int file, const std::set<std::string>& keys) {
        if (!files_.Open(file, station)) return;
        const auto count = static_cast<long long>(keys.size());
        const long long records = bank_.RecordCount(base_, file, station);
        if (count >= kWalkFrom && count * 4 >= records) {
            const RecordWalk walk{
                .bank = &bank_,
                .base = base_,
                .fileNumber = file,
                .station = station,
                .keyNumber = 0,
                .low = file == kLabels ? std::string(kCategoryHead) + std::string(5, '\0')
                                       : std::string(kSongWidth, '\0'),
                .high = file == kLabels ? std::string(kCategoryHead) + std::string(5, '\xff') : "",
                .caller = Caller("InitGeneralDonneesEquivalence", "D")};
            WalkRecords(walk, [&](const std::string& data) {
                std::string key = KeyOf(file, 0, data);
                if (keys.count(key)) texts_[{station, std::move(key)}] = Text(file, data);
            });
            return;
        }
        for (const std::string& wanted : keys) {
            std::string data, key = wanted;
            bank_.BTRieve(base_, btr::kGetEqual, data, key, 0, file, station,
                          Caller("InitGeneralDonneesEquivalence", file == kLabels ? "C" : "B"));
            if (bank_.LastStatus() == btr::kSuccess) texts_[{station, wanted}] = Text(file, data);
        }
    }

    // Codes of one station from which its file is read through rather than code by code.
    static constexpr long long kWalkFrom = 64;

    SlotBank& bank_;
    int base_;
    OpenedFiles& files_;
    std::map<std::pair<int, std::string>, std::string> texts_;  // (station, file key) -> text
};

// The codes of one record of file 46, slot by slot: a category code makes "CATEG" + code, a song
// code the code itself.
EquivalenceTable::Row RowOfRecord(const std::string& data) {
    static const std::vector<FieldOf> slots = [] {
        std::vector<FieldOf> fields;
        for (int slot = 0; slot < EquivalenceTable::kSlots; ++slot)
            fields.emplace_back(kFile, "SongId", slot);
        return fields;
    }();
    EquivalenceTable::Row row;
    row.number = static_cast<int>(RecordView(LayoutFor(kFile), data).Number("NoLig"));
    for (int slot = 0; slot < EquivalenceTable::kSlots; ++slot) {
        const std::string_view category = slots[static_cast<size_t>(slot)].In(data, 0);
        const std::string_view song = slots[static_cast<size_t>(slot)].In(data, 1);
        std::string code;
        if (!IsBlank(category)) {
            code = std::string(kCategoryHead) + std::string(category);
        } else if (!IsBlank(song)) {
            code = song;
        }
        if (code.empty()) continue;
        row.cells.resize(static_cast<size_t>(slot) + 1);
        row.cells[static_cast<size_t>(slot)].code = std::move(code);
    }
    return row;
}

std::string RecordOfRow(const EquivalenceTable::Row& row) {
    std::string data = BlankRecord(kFile);
    RecordView record(LayoutFor(kFile), data);
    if (!record.SetNumber("NoLig", row.number)) return "";
    const size_t slots = std::min(row.cells.size(), static_cast<size_t>(EquivalenceTable::kSlots));
    for (size_t slot = 0; slot < slots; ++slot) {
        const std::string& code = row.cells[slot].code;
        if (row.cells[slot].empty()) continue;
        std::string bytes =
            IsCategoryCode(code)
                ? FixedWidth(std::string_view(code).substr(kCategoryHead.size()), kCategoryWidth) +
                      std::string(kSongWidth, ' ')
                : std::string(kCategoryWidth, ' ') + FixedWidth(code, kSongWidth);
        record.SetRaw("SongId", bytes, static_cast<int>(slot));
    }
    return data;
}

}  // namespace

bool EquivalenceTable::Row::empty() const {
    return std::all_of(cells.begin(), cells.end(), [](const Cell& c) { return c.empty(); });
}

bool EquivalenceTable::Load(SlotBank& bank, int base) {
    return Guarded<bool>(Caller("InitGeneralDonneesEquivalence"), false, [&] {
        rows_.clear();
        modified_ = false;
        complete_ = true;
        if (base < 0 || base >= static_cast<int>(Site().bases.size())) return false;
        OpenedFiles files(bank, base);
        if (!files.Open(kFile, 1)) {
            TraceLog("Err: Equivalence: file 46 of base " + std::to_string(base + 1) +
                     " cannot be opened");
            complete_ = false;
            return false;
        }
        std::vector<Row> rows;
        const RecordWalk walk{.bank = &bank,
                              .base = base,
                              .fileNumber = kFile,
                              .station = 1,
                              .keyNumber = 0,
                              .low = std::string(5, '\0'),
                              .high = "",  // to the end of the file
                              .caller = Caller("InitGeneralDonneesEquivalence", "A")};
        RecordWalkResult read = WalkRecords(walk, [&](const std::string& data) {
            Row row = RowOfRecord(data);
            if (!row.cells.empty()) rows.push_back(std::move(row));
        });
        CellTexts texts(bank, base, files);
        texts.Read(rows);
        for (Row& row : rows) {
            for (size_t i = 0; i < row.cells.size(); ++i) {
                Cell& cell = row.cells[i];
                if (!cell.empty()) cell.shown = texts.Shown(static_cast<int>(i) + 1, cell.code);
            }
        }
        // Key order is row order already; a file written elsewhere may hold odd numbers.
        std::stable_sort(rows.begin(), rows.end(),
                         [](const Row& a, const Row& b) { return a.number < b.number; });
        rows_ = std::move(rows);
        complete_ = read.complete();
        if (!complete_)
            TraceLog("Err: Equivalence: base " + std::to_string(base + 1) + ": " +
                     std::to_string(read.failedReads) + " read(s) of file 46 failed");
        TraceLog("Equivalence: base " + std::to_string(base + 1) + ": " +
                 std::to_string(rows_.size()) + " row(s) loaded");
        return true;
    });
}

bool EquivalenceTable::Save(SlotBank& bank, int base) {
    const std::string procedure = "SaveSettingsEquivalence";
    return Guarded<bool>(Caller(procedure.c_str()), false, [&] {
        if (base < 0 || base >= static_cast<int>(Site().bases.size())) return false;
        // Opened accelerated: the deletes and inserts reach the disk together when the file
        // closes, so that a crash on the way leaves the table as it was.
        OpenedFiles files(bank, base);
        if (!files.OpenForRewrite(kFile, 1)) {
            TraceLog("Err: Equivalence: file 46 of base " + std::to_string(base + 1) +
                     " cannot be opened: not saved");
            return false;
        }
        // The records are made first: a row that cannot be written must not cost the file.
        std::vector<std::string> records;
        for (const Row& row : rows_) {
            if (row.empty()) continue;
            records.push_back(RecordOfRow(row));
            if (records.back().empty()) {
                TraceLog("Err: Equivalence: row number " + std::to_string(row.number) +
                         " does not fit in five digits: not saved");
                return false;
            }
        }
        // Every record goes; the table is written again from the grid.
        const std::string low(5, '\0');
        std::string data, key = low;
        bank.BTRieve(base, btr::kGetGreaterOrEqual, data, key, 0, kFile, 1,
                     Caller(procedure.c_str(), "A"));
        while (bank.LastStatus() == btr::kSuccess) {
            bank.BTRieve(base, btr::kDelete, data, key, 0, kFile, 1,
                         Caller(procedure.c_str(), "B"));
            if (bank.LastStatus() != btr::kSuccess) break;
            key = low;
            bank.BTRieve(base, btr::kGetGreaterOrEqual, data, key, 0, kFile, 1,
                         Caller(procedure.c_str(), "A"));
        }
        if (bank.LastStatus() != btr::kEndOfFile) {
            TraceLog("Err: Equivalence: base " + std::to_string(base + 1) +
                     ": the old rows could not be deleted |Status: " +
                     std::to_string(bank.LastStatus()));
            return false;
        }
        long long written = 0;
        for (std::string& record : records) {
            key.assign(5, ' ');
            bank.BTRieve(base, btr::kInsert, record, key, 0, kFile, 1,
                         Caller(procedure.c_str(), "C"));
            if (bank.LastStatus() != btr::kSuccess) {
                TraceLog("Err: Equivalence: base " + std::to_string(base + 1) + ": row " +
                         record.substr(0, 5) +
                         " not written |Status: " + std::to_string(bank.LastStatus()));
                return false;
            }
            ++written;
        }
        if (int16_t status = files.Close(kFile, 1); status != btr::kSuccess) {
            TraceLog("Err: Equivalence: base " + std::to_string(base + 1) +
                     ": the rows could not be made durable |Status: " + std::to_string(status));
            return false;
        }
        modified_ = false;
        complete_ = true;  // the file holds the table as it stands now
        TraceLog("Equivalence: base " + std::to_string(base + 1) + ": " + std::to_string(written) +
                 " row(s) saved");
        return true;
    });
}

std::optional<std::string> EquivalenceTable::Match(int sourceStation, int targetStation,
                                                   std::string_view code) const {
    const std::string_view wanted = TrimmedView(code);
    if (wanted.empty() || sourceStation < 1 || targetStation < 1) return std::nullopt;
    const auto source = static_cast<size_t>(sourceStation - 1);
    const auto target = static_cast<size_t>(targetStation - 1);
    for (const Row& row : rows_) {
        if (source >= row.cells.size() || TrimmedView(row.cells[source].code) != wanted) continue;
        // The first row that holds the code decides, even when it has nothing for the target.
        if (target >= row.cells.size() || row.cells[target].empty()) return std::nullopt;
        return row.cells[target].code;
    }
    return std::nullopt;
}

std::vector<EquivalenceTable::Row>::iterator EquivalenceTable::LowerBound(int number) {
    return std::lower_bound(rows_.begin(), rows_.end(), number,
                            [](const Row& row, int n) { return row.number < n; });
}

const EquivalenceTable::Row* EquivalenceTable::FindRow(int number) const {
    auto it = std::lower_bound(rows_.begin(), rows_.end(), number,
                               [](const Row& row, int n) { return row.number < n; });
    return it != rows_.end() && it->number == number ? &*it : nullptr;
}

const EquivalenceTable::Cell& EquivalenceTable::CellAt(int number, int station) const {
    static const Cell kEmpty;
    const Row* row = FindRow(number);
    if (!row || station < 1 || static_cast<size_t>(station) > row->cells.size()) return kEmpty;
    return row->cells[static_cast<size_t>(station) - 1];
}

void EquivalenceTable::SetCell(int number, int station, Cell cell) {
    if (station < 1 || station > kSlots || number < 1 || number > kMaxRowNumber) return;
    if (cell.empty()) {
        ClearCell(number, station);
        return;
    }
    auto it = LowerBound(number);
    if (it == rows_.end() || it->number != number) it = rows_.insert(it, Row{number, {}});
    if (it->cells.size() < static_cast<size_t>(station))
        it->cells.resize(static_cast<size_t>(station));
    it->cells[static_cast<size_t>(station) - 1] = std::move(cell);
    modified_ = true;
}

void EquivalenceTable::ClearCell(int number, int station) {
    auto it = LowerBound(number);
    if (it == rows_.end() || it->number != number || station < 1 ||
        static_cast<size_t>(station) > it->cells.size())
        return;
    it->cells[static_cast<size_t>(station) - 1] = Cell{};
    modified_ = true;
    if (it->empty()) rows_.erase(it);
}

void EquivalenceTable::ClearRow(int number) {
    auto it = LowerBound(number);
    if (it == rows_.end() || it->number != number) return;
    rows_.erase(it);
    modified_ = true;
}

}  // namespace toverin
