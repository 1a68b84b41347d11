// A real base for the import's tests: a site of one base with two stations whose data folder
// holds every file the import writes or reads, empty, made by the engine from the catalogue.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "app/DateTime.h"
#include "tests/support/TestSupport.h"

namespace toverin::testing {

class ImportSite : public ::testing::Test {
  public:
    ImportSite();
    ~ImportSite() override;

    std::string DataPath(int file, int station = 1) const;
    // Inserts records into a file of the base (outside any bank, as another program would).
    void Insert(int file, int station, const std::vector<std::string>& records);
    // Every record of a file in the order of key `key`.
    std::vector<std::string> ReadAll(int file, int station = 1, int key = 0) const;
    // The record whose key `keyNumber` is `key`, or "" when there is none.
    std::string Find(int file, int station, int keyNumber, const std::string& key) const;
    // The size and a hash of every file of the data folder, to show that nothing changed.
    std::map<std::string, std::string> Snapshot() const;
    // A delivery file: the declaration and root around `body` (lines ending with CRLF).
    std::string Delivery(const std::string& name, const std::string& body) const;

    TempDir dir;
    ScopedFakeClock clock{MakeLocalTime(2026, 3, 2, 10, 0, 0)};
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
};

// The files a delivery may touch: written by its sections or read by them.
inline const std::vector<int> kImportFiles = {1, 2, 3, 4, 5, 6, 7, 20, 21, 22, 25, 26, 30, 31};

}  // namespace toverin::testing
