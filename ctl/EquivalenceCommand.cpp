// toverinctl equivalence show: the equivalence table of a base as the Equivalence tab shows it,
// one line per row: the row number, then each station's cell (its code and its text, "-" when
// empty), separated by tabs. The exit status is 1 when the table could not be read whole.
#include <iostream>

#include "app/Log.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/EquivalenceTable.h"
#include "ctl/Ctl.h"
#include "ctl/CtlSite.h"
#include "store/Pervasive.h"

namespace toverin::ctl {

namespace {

std::string CellText(const EquivalenceTable::Cell& cell) {
    if (cell.empty()) return "-";
    std::string text = Utf8FromCp1252(Trim(cell.code));
    if (!cell.shown.empty()) text += " " + cell.shown;
    return text;
}

int Show(Args& args) {
    FlagDialogs dialogs(false);
    SetAppDialogs(&dialogs);
    struct Restore {
        ~Restore() {
            TraceLogForce();
            SetAppDialogs(nullptr);
        }
    } restore;
    if (int status = OpenSite(args, "equivalence")) return status;
    int base = 0;
    if (std::string error = ParseBase(args, "equivalence", base); !error.empty())
        return Fail(error);
    if (!args.empty()) return Fail("equivalence: unexpected '" + args[0] + "'");

    SlotBank bank("toverinctl");
    EquivalenceTable table;
    if (!table.Load(bank, base))
        return Fail("equivalence: the table of base " + std::to_string(base) + " could not be read",
                    kExitFailed);
    size_t columns = static_cast<size_t>(Site().bases[static_cast<size_t>(base)].stationCount);
    for (const auto& row : table.rows()) columns = std::max(columns, row.cells.size());
    for (const auto& row : table.rows()) {
        std::string line = ZeroPad(row.number, 5);
        for (size_t s = 0; s < columns; ++s)
            line += "\t" + CellText(s < row.cells.size() ? row.cells[s] : EquivalenceTable::Cell{});
        std::cout << line << "\n";
    }
    std::cerr << "equivalence of base " << base << ": " << table.rows().size() << " row(s)"
              << (table.complete() ? "" : ", some rows could not be read") << "\n";
    return table.complete() ? 0 : kExitFailed;
}

}  // namespace

int RunEquivalenceCommand(const Args& input) {
    Args args = input;
    if (args.empty() || args[0] != "show")
        return Fail("equivalence: usage: equivalence show [--root DIR] --base N");
    args.erase(args.begin());
    return Show(args);
}

}  // namespace toverin::ctl
