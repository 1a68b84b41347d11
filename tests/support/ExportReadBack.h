// Exports read back by readers that are not the program's own (xlrd, openpyxl, Python's XML
// parser), through tests/support/check_export.py.
#pragma once

#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace toverin::testing {

using Rows = std::vector<std::vector<std::string>>;

struct ExpectedSheet {
    std::string name;
    Rows rows;
};

std::string Json(const std::string& text);
std::string Json(const std::vector<std::string>& row);
// The checker's expectation for a workbook.
std::string WorkbookJson(const std::vector<ExpectedSheet>& sheets);

// Runs the checker on `exported` ("xls", "xlsx" or "xml"); "same cells" when the reader saw what
// `expectedJson` holds, else what differed.
std::string ReadBack(const std::string& kind, const std::string& exported,
                     const std::string& expectedJson, const TempDir& dir);

}  // namespace toverin::testing
