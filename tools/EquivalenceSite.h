// A site made for the equivalence table at scale: one base of up to ten stations, each with its
// own songs (file 22) and one category (file 21), and a table (file 46) of one row per song
// number, each row holding every station's song of that number. Used by the tests and the
// benchmark of the table's load.
//
// Station s's song of row r has the code "000" + ((s - 1) * rows + r) on five digits, the title
// "Titre " + r + " é" and the second text "Station " + s. Every 97th row holds station 7's
// category "C7" instead of a song. Every 1000th song of station 4 is missing from its songs
// file, as if deleted since.
#pragma once

#include <string>

namespace toverin {

struct EquivalenceSiteResult {
    bool ok = false;
    std::string error;
    std::string dataFolder;  // native, with a trailing separator
    long long records = 0;   // records written in files 21, 22 and 46
};

EquivalenceSiteResult CreateEquivalenceSite(const std::string& root, int stations, int rows);
// The song code of station `station` in row `row` of a site of `rows` rows.
std::string EquivalenceSiteSong(int station, int row, int rows);

}  // namespace toverin
