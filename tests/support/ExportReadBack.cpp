#include "tests/support/ExportReadBack.h"

#include <cstdio>

namespace toverin::testing {

std::string Json(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string Json(const std::vector<std::string>& row) {
    std::string out = "[";
    for (size_t i = 0; i < row.size(); ++i) out += (i ? "," : "") + Json(row[i]);
    return out + "]";
}

std::string WorkbookJson(const std::vector<ExpectedSheet>& sheets) {
    std::string out = "{\"sheets\":[";
    for (size_t s = 0; s < sheets.size(); ++s) {
        out += (s ? ",{" : "{") + std::string("\"name\":") + Json(sheets[s].name) + ",\"rows\":[";
        for (size_t r = 0; r < sheets[s].rows.size(); ++r)
            out += (r ? ",\n" : "") + Json(sheets[s].rows[r]);
        out += "]}";
    }
    return out + "]}";
}

std::string ReadBack(const std::string& kind, const std::string& exported,
                     const std::string& expectedJson, const TempDir& dir) {
    const std::string expected = dir.file("expected.json");
    WriteFile(expected, expectedJson);
    // The system's Python, which has the Debian readers.
    std::string command = "/usr/bin/python3 " TOVERIN_SOURCE_DIR "/tests/support/check_export.py " +
                          kind + " '" + exported + "' '" + expected + "' 2>&1";
    return CommandOutput(command);
}

}  // namespace toverin::testing
