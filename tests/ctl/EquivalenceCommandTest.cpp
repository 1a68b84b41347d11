// toverinctl equivalence show on a demo site: one line per row, each station's cell.
#include <gtest/gtest.h>

#include <sstream>

#include "app/DateTime.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "store/Pervasive.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"
#include "tools/DemoSite.h"

namespace toverin {
namespace {

using testing::RunCaptured;

TEST(EquivalenceCommand, ShowsOneLinePerRowWithEachStationsCell) {
    testing::TempDir dir;
    testing::ScopedLogAndRegistry env{dir};
    testing::ScriptedDialogs dialogs;
    ResetSite();
    ClearDriveTable();
    DemoSiteResult demo =
        CreateDemoSite(dir.folder(), DemoSize::Small, 2, MakeLocalTime(2026, 3, 2, 10, 0));
    ASSERT_TRUE(demo.ok) << demo.error;

    testing::CtlRun run =
        RunCaptured({"equivalence", "show", "--root", dir.folder(), "--base", "0"});
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::string> lines;
    std::istringstream in(run.out);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 6u) << run.out;
    EXPECT_EQ(lines[0].rfind("00001\t00091001 ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("\t00092001 "), std::string::npos);
    EXPECT_NE(lines[0].find(" - "), std::string::npos) << "the texts come with the codes";
    EXPECT_EQ(lines[5].substr(lines[5].rfind('\t')), "\tCATEGHITS Catégorie: Hits actuels");
    EXPECT_NE(run.err.find("6 row(s)"), std::string::npos);

    // A cell whose song is gone shows its code alone.
    {
        SlotBank bank("test");
        ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 2, 2, 22));
        std::string data, key = "00092003";
        bank.BTRieve(0, btr::kGetEqual, data, key, 0, 22, 2, "test");
        ASSERT_EQ(bank.LastStatus(), 0);
        bank.BTRieve(0, btr::kDelete, data, key, 0, 22, 2, "test");
        ASSERT_EQ(bank.LastStatus(), 0);
    }
    run = RunCaptured({"equivalence", "show", "--root", dir.folder(), "--base", "0"});
    EXPECT_NE(run.out.find("\t00092003\t"), std::string::npos) << run.out;

    EXPECT_EQ(RunCaptured({"equivalence", "show", "--root", dir.folder()}).status, 2);
    EXPECT_EQ(RunCaptured({"equivalence", "show", "--root", dir.folder(), "--base", "5"}).status,
              2);
    EXPECT_EQ(RunCaptured({"equivalence", "list", "--base", "0"}).status, 2);
    ResetSite();
}

}  // namespace
}  // namespace toverin
