// toverinctl duplicate schedule / labels on a demo site.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/DateTime.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"
#include "tools/DemoSite.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::RunCaptured;

std::string IsoDay(int offset) {
    const std::string key = DateKey(AddDays(AppClock().Now(), offset));
    return key.substr(0, 4) + "-" + key.substr(4, 2) + "-" + key.substr(6, 2);
}

class DuplicateCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetSite();
        root = dir.folder() + "site";
        ASSERT_TRUE(CreateDemoSite(root, DemoSize::Small, 7, AppClock().Now()).ok);
    }
    void TearDown() override {
        ResetRecordAccess();
        ResetSite();
    }
    std::vector<std::string> Records(int file, int station) {
        std::vector<std::string> out;
        engine::EngineFile f;
        EXPECT_EQ(
            f.Open(root + "/C/KV_Data/Base1/" + StationFileName(file, station), btr::kOpenReadOnly),
            0);
        std::string data(CatalogueEntryFor(file).recordLength, ' '), key(255, '\0');
        for (int16_t st = f.Call(btr::kGetFirst, data, key, 0); st == 0;
             st = f.Call(btr::kGetNext, data, key, 0))
            out.push_back(data);
        return out;
    }
    size_t Events(int station, int offset, int hour) {
        size_t n = 0;
        for (const auto& r : Records(35, station)) {
            RecordView v(35, r);
            n += v.Text("Date") == DateKey(AddDays(AppClock().Now(), offset)) &&
                 v.Number("HH") == hour;
        }
        return n;
    }

    testing::TempDir dir;
    testing::ScopedLogAndRegistry env{dir};
    std::string root;
};

TEST_F(DuplicateCommand, TheCommandLineIsCheckedBeforeAnySiteIsRead) {
    const std::string nowhere = dir.folder() + "nowhere";
    const std::vector<std::string> common = {"--root", nowhere, "--base", "0", "--source", "1"};
    auto schedule = [&](std::vector<std::string> extra) {
        std::vector<std::string> args = {"duplicate", "schedule"};
        args.insert(args.end(), common.begin(), common.end());
        args.insert(args.end(), extra.begin(), extra.end());
        return RunCaptured(args);
    };
    const std::vector<std::string> day = {"--targets", "2",          "--from",        "2026-11-18",
                                          "--to",      "2026-11-18", "--target-date", "2026-11-25"};
    auto with = [&](std::vector<std::string> extra) {
        std::vector<std::string> args = day;
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    };
    for (const auto& bad : std::vector<std::vector<std::string>>{
             {"--targets", "2"},             // no dates
             with({"--hours", "20-25"}),     // no such hour
             with({"--hours", "1-3"}),       // HH-HH
             with({"--target-hour", "24"}),  // no such hour
             {"--targets", "0", "--from", "2026-11-18", "--to", "2026-11-18", "--target-date",
              "2026-11-25"},  // no station 0
             {"--targets", "2", "--from", "2026-02-30", "--to", "2026-02-30", "--target-date",
              "2026-11-25"},  // no such day
             {"--targets", "2", "--from", "2026-11-19", "--to", "2026-11-18", "--target-date",
              "2026-11-25"},  // ends before it starts
             with({"--what"})}) {
        testing::CtlRun run = schedule(bad);
        EXPECT_EQ(run.status, 2) << run.err;
        EXPECT_NE(run.err.find("duplicate schedule: "), std::string::npos) << run.err;
    }
    // A value given but wrong is named, not reported as missing.
    testing::CtlRun badDay = schedule({"--targets", "2", "--from", "2026-02-30", "--to",
                                       "2026-02-30", "--target-date", "2026-11-25"});
    EXPECT_NE(badDay.err.find("--from takes a date YYYY-MM-DD, not '2026-02-30'"),
              std::string::npos)
        << badDay.err;
    testing::CtlRun badBase = RunCaptured({"duplicate", "labels", "--root", nowhere, "--base", "x",
                                           "--source", "1", "--targets", "2"});
    EXPECT_EQ(badBase.status, 2);
    EXPECT_NE(badBase.err.find("--base takes a base number (0 = the first base), not 'x'"),
              std::string::npos)
        << badBase.err;
    testing::CtlRun labels =
        RunCaptured({"duplicate", "labels", "--root", nowhere, "--base", "0", "--source", "1",
                     "--targets", "2", "--groups", "categ,songs"});
    EXPECT_EQ(labels.status, 2);
    EXPECT_NE(labels.err.find("unknown group 'songs'"), std::string::npos) << labels.err;
    EXPECT_EQ(RunCaptured({"duplicate", "copy"}).status, 2);
    EXPECT_FALSE(fs::exists(nowhere)) << "no site was read";

    // What only the site can say is checked once it is read.
    testing::CtlRun base = RunCaptured(
        {"duplicate", "labels", "--root", root, "--base", "5", "--source", "1", "--targets", "2"});
    EXPECT_EQ(base.status, 2);
    EXPECT_NE(base.err.find("the site has no base 5"), std::string::npos) << base.err;
    testing::CtlRun station = RunCaptured({"duplicate", "labels", "--root", root, "--base", "0",
                                           "--source", "1", "--targets", "2,7"});
    EXPECT_EQ(station.status, 2);
    EXPECT_NE(station.err.find("the base has no station 7"), std::string::npos) << station.err;
}

TEST_F(DuplicateCommand, BothRunUnattendedAndTheirStatusSaysHowTheyEnded) {
    const size_t source = Events(1, -5, 10);
    ASSERT_GT(source, 0u);
    testing::CtlRun run =
        RunCaptured({"duplicate",     "schedule", "--root",        root,      "--base",  "0",
                     "--source",      "1",        "--targets",     "2,3",     "--from",  IsoDay(-5),
                     "--to",          IsoDay(-5), "--target-date", IsoDay(2), "--hours", "10-10",
                     "--target-hour", "12",       "--history"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("duplicate schedule of base 0: finished"), std::string::npos) << run.out;
    // The questions were answered Yes, and said so.
    EXPECT_NE(run.err.find("Voulez-vous dupliquer le conducteur musical ? -> Oui"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("Duplication du conducteur musical terminée -> OK"), std::string::npos);
    EXPECT_EQ(Events(2, 2, 12), source);
    EXPECT_EQ(Events(3, 2, 12), source);

    testing::CtlRun labels = RunCaptured({"duplicate", "labels", "--root", root, "--base", "0",
                                          "--source", "1", "--targets", "2", "--groups", "CATEG"});
    EXPECT_EQ(labels.status, 0) << labels.err;
    EXPECT_NE(labels.out.find("8 records read, 8 rewritten"), std::string::npos) << labels.out;

    // A refused run fails: labels cannot go onto their own station.
    testing::CtlRun refused = RunCaptured({"duplicate", "labels", "--root", root, "--base", "0",
                                           "--source", "1", "--targets", "1,2"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.out.find("refused"), std::string::npos) << refused.out;
}

}  // namespace
}  // namespace toverin
