// A small demo site (two bases of three stations, a week of history up to Monday 23 November
// 2026 and a week of schedule ahead) for the duplication tests, with readers of what a station's
// files hold.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "app/DateTime.h"
#include "app/Progress.h"
#include "app/Text.h"
#include "content/Duplication.h"
#include "content/EquivalenceTable.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tests/operations/SiteFixture.h"
#include "tools/DemoSite.h"

namespace toverin::testing {

class DuplicationFixture : public SiteFixture {
  protected:
    void SetUp() override {
        // The site is made once (it takes seconds of syncs) and each test works on a copy.
        static TempDir made;
        static bool ok = [&] {
            DemoSiteResult demo =
                CreateDemoSite(made.folder(), DemoSize::Small, 7, AppClock().Now());
            EXPECT_TRUE(demo.ok) << demo.error;
            return demo.ok;
        }();
        ASSERT_TRUE(ok);
        std::filesystem::copy(made.path(), dir.path(),
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::overwrite_existing);
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
        DetermineFichierConfig();
        ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    }

    std::string Path(int file, int station) const { return DataFilePath(0, file, station); }
    std::vector<std::string> Records(int file, int station) { return ReadAll(Path(file, station)); }
    // The records of a dated file for one day ("YYYYMMDD") and, when given, one hour: the hour
    // field of the schedule, the (first) time of the histories.
    std::vector<std::string> DayRecords(int file, int station, const std::string& date,
                                        int hour = -1) {
        std::vector<std::string> out;
        for (const std::string& r : Records(file, station)) {
            RecordView v(file, r);
            if (v.Text("Date") != date) continue;
            if (hour >= 0) {
                const std::string h = file == 35 ? v.Text("HH") : v.Text("hhmmss").substr(0, 2);
                if (h != ZeroPad(hour, 2)) continue;
            }
            out.push_back(r);
        }
        return out;
    }
    // Rewrites the records of a station's file through `change` (test data set-up).
    template <class Change>
    void Rewrite(int file, int station, Change change) {
        std::vector<std::string> records = Records(file, station);
        std::vector<std::string> kept;
        for (std::string& r : records)
            if (change(r)) kept.push_back(r);
        WriteFileAt(file, station, kept);
    }
    void WriteFileAt(int file, int station, const std::vector<std::string>& records) {
        const std::string path = Path(file, station);
        ASSERT_EQ(engine::EngineFile::Create(path, CreationRecord(file)), 0) << path;
        // Test data need not wait for the disk.
        engine::SetSyncedWrites(false);
        {
            engine::EngineFile f;
            ASSERT_EQ(f.Open(path), 0);
            for (std::string record : records) {
                std::string key(255, ' ');
                ASSERT_EQ(f.Call(btr::kInsert, record, key, 0), 0) << path;
            }
        }
        engine::SetSyncedWrites(true);
    }

    // Wednesday 18 November 2026 (history and schedule) .. Monday 30 November (schedule only).
    static LocalTime Nov(int day) { return MakeLocalTime(2026, 11, day); }
    static std::string NovKey(int day) { return DateKey(Nov(day)); }

    ScheduleDuplicationRequest Request(int source, std::vector<int> targets, int from, int to,
                                       int target) const {
        ScheduleDuplicationRequest r;
        r.base = 0;
        r.sourceStation = source;
        for (int t : targets) r.targets[static_cast<size_t>(t - 1)] = true;
        r.dateDeb = Nov(from);
        r.dateFin = Nov(to);
        r.dateCible = Nov(target);
        r.equivalence = &table;
        return r;
    }
    ScheduleDuplicationOutcome Duplicate(const ScheduleDuplicationRequest& r) {
        progress = RecordingProgress{};
        return DuplicationScheduler(r, progress);
    }
    std::vector<std::string> MessageTexts() const {
        std::vector<std::string> out;
        for (const auto& m : dialogs.messages) out.push_back(m.text);
        return out;
    }

    EquivalenceTable table;
    RecordingProgress progress;
};

}  // namespace toverin::testing
