// A site of one base with two stations in a temporary folder, the access layer reset, the
// dialogs scripted, the clock fake and the program's end recorded instead of exiting.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/DateTime.h"
#include "app/Incidents.h"
#include "app/Log.h"
#include "app/Site.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "tests/support/TestSupport.h"

namespace toverin::testing {

class AccessLayerTest : public ::testing::Test {
  protected:
    AccessLayerTest() : logs(dir), clock(MakeLocalTime(2026, 3, 17, 14, 5, 9)) {}

    void SetUp() override {
        ResetRecordAccess();
        ResetSite();
        Site().bases.resize(1);
        Site().bases[0].dataFolder = dir.folder();
        Site().bases[0].stations.resize(2);
        Site().bases[0].stations[0].label = "Radio Nord";
        Site().bases[0].stations[1].label = "Radio Sud";
        ClearIncidents();
        SetProgramEnd([this](const std::string& reason) { ends.push_back(reason); });
    }

    void TearDown() override {
        SetProgramEnd({});
        ResetRecordAccess();
        ResetSite();
        ClearIncidents();
    }

    bool Logged(const std::string& text) const {
        for (const std::string& line : RecentLogLines())
            if (line.find(text) != std::string::npos) return true;
        return false;
    }

    TempDir dir;
    ScopedLogAndRegistry logs;
    ScopedFakeClock clock;
    ScriptedDialogs dialogs;
    std::vector<std::string> ends;
    SlotBank bank{"Test"};
};

}  // namespace toverin::testing
