// A small real site for the operations' tests: one base of two stations whose record files are
// written through the engine with the catalogue's layouts.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "app/DateTime.h"
#include "app/Site.h"
#include "operations/BackupSettings.h"
#include "tests/support/TestSupport.h"

namespace toverin::testing {

class SiteFixture : public ::testing::Test {
  public:
    // Monday 23 November 2026, 10:00.
    SiteFixture();
    ~SiteFixture() override;

    // Writes a site configuration of one base with `stations` stations and reads it.
    void MakeSite(int stations = 2);
    // Creates file `f` of `station` holding `records` (each a full record).
    void WriteFile(int f, int station, const std::vector<std::string>& records);
    // Creates the record file `path` with the layout of file `f`, holding `records`.
    void WriteRecordFile(const std::string& path, int f, const std::vector<std::string>& records);
    // A record of file `f` whose first key is unique through `n`, dated `date` ("YYYYMMDD") on the
    // field its history key leads with (when it has one).
    std::string Record(int f, int n, const std::string& date = "");
    // Every record of a file, read on key 0 (bytes).
    std::vector<std::string> ReadAll(const std::string& path);
    std::string DataPath(int f, int station) const;
    LocalTime Today() const { return AppClock().Now(); }
    std::string DaysAgo(int days) const { return DateKey(AddDays(Today(), -days)); }
    BackupOptions Options() const;
    std::string Log() const { return env.LogText(); }

    TempDir dir;
    ScopedFakeClock clock{MakeLocalTime(2026, 11, 23, 10, 0, 0)};
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
};

}  // namespace toverin::testing
