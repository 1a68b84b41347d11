#include <gtest/gtest.h>

#include <filesystem>

#include "app/Ini.h"
#include "operations/OperationState.h"
#include "operations/Planning.h"
#include "operations/Scheduler.h"
#include "tests/operations/SiteFixture.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

OperationPlan PlanOf(std::initializer_list<PlanRow> rows) {
    OperationPlan plan;
    plan.active = true;
    int i = 0;
    for (const PlanRow& r : rows) plan.rows[i++] = r;
    return plan;
}

TEST(NextDate, TheWeeklyRule) {
    // Monday 23 November 2026, 10:00.
    const LocalTime monday = MakeLocalTime(2026, 11, 23, 10, 0, 0);
    // Today at a time already past: the same weekday next week.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 0, 2, 2}}), monday), MakeLocalTime(2026, 11, 30, 2, 2, 0));
    // Today later on: today.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 0, 22, 30}}), monday),
              MakeLocalTime(2026, 11, 23, 22, 30, 0));
    // Within the five seconds of the reference: next week.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 0, 10, 0}}), monday - std::chrono::seconds(3)),
              MakeLocalTime(2026, 11, 30, 10, 0, 0));
    // Several days: the earliest wins, whatever the row order.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 4, 1, 0}, {true, 2, 23, 59}, {false, 1, 0, 0}}), monday),
              MakeLocalTime(2026, 11, 25, 23, 59, 0));
    // Earlier weekday: next week, across a month end.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 6, 3, 0}}), MakeLocalTime(2026, 11, 30, 9, 0, 0)),
              MakeLocalTime(2026, 12, 6, 3, 0, 0));
    // Across a year end.
    EXPECT_EQ(NextDueDate(PlanOf({{true, 4, 2, 2}}), MakeLocalTime(2026, 12, 31, 23, 0, 0)),
              MakeLocalTime(2027, 1, 1, 2, 2, 0));
    // All rows off, or the planning off.
    EXPECT_FALSE(NextDueDate(PlanOf({{false, 0, 2, 2}}), monday));
    OperationPlan off = PlanOf({{true, 0, 23, 0}});
    off.active = false;
    EXPECT_FALSE(NextDueDate(off, monday));
    EXPECT_EQ(NextDateText(std::nullopt), "Non planifié");
    EXPECT_EQ(NextDateText(MakeLocalTime(2026, 11, 24, 2, 2, 0)), "mardi 24 novembre 2026 02:02");
}

TEST(PlanText, DefaultRowsAndRoundTrip) {
    auto rows = ParsePlan(kDefaultBackupPlan);
    for (int r = 0; r < 7; ++r) {
        EXPECT_TRUE(rows[r].active);
        EXPECT_EQ(rows[r].weekday, r);
        EXPECT_EQ(rows[r].hour, 2);
        EXPECT_EQ(rows[r].minute, 2);
    }
    for (int r = 7; r < 10; ++r) EXPECT_FALSE(rows[r].active);
    EXPECT_EQ(FormatPlan(rows), kDefaultBackupPlan);
    EXPECT_EQ(FormatPlanRow(ParsePlanRow("1061559")), "1061559");
    auto shortPlan = ParsePlan("0");
    EXPECT_FALSE(shortPlan[0].active);
}

class SchedulerNight : public testing::SiteFixture {
  protected:
    void SetUp() override {
        clock->Set(MakeLocalTime(2026, 11, 23, 1, 50, 0));  // Monday, 01:50
        MakeSite(1);
        WriteFile(22, 1, {Record(22, 1), Record(22, 2)});
    }
    std::string Marker(const std::string& key, const std::string& ini = "C/KV_Config/BK_PRG.ini") {
        return LectureIni(dir.file(ini), "Data_Backup", key, "<none>");
    }
    RecordingView view;
};

TEST_F(SchedulerNight, PlanFromSettingsWithTheZoneFallBackAndSaveOrder) {
    std::string ini = dir.file("C/KV_Config/KV3_Toverin_Serveur.ini");
    testing::WriteFile(
        ini,
        "[Zone_0]\r\nPlanning_Bkp="
        "1000310000000000000000000000000000000000000000000000000000000000000000\r\n");
    BasePlan plan = LoadPlan(0);
    EXPECT_TRUE(plan.backup.rows[0].active);
    EXPECT_EQ(plan.backup.rows[0].hour, 3);
    EXPECT_EQ(plan.backup.rows[0].minute, 10);
    EXPECT_FALSE(plan.backup.active);
    EXPECT_EQ(plan.filesExport, kDefaultFiles);
    EXPECT_EQ(plan.stationsImport, "0000000000000000");
    plan.backup.active = true;
    SaveSettings(0, plan);
    std::string text = testing::ReadFile(ini);
    size_t a = text.find("Planning_Bkp="), b = text.find("Planning_Bkp_Actif=1"),
           c = text.find("Fichiers_Export="), d = text.find("Planning_Import_DateRef="),
           e = text.find("[Maya_Base_0]\r\nStations_Import=1111111111");
    EXPECT_TRUE(a < b && b < c && c < d && d < e && e != std::string::npos) << text;
    fs::remove(ini);
    EXPECT_EQ(FormatPlan(LoadPlan(0).backup.rows), kDefaultBackupPlan);
}

TEST_F(SchedulerNight, TheNightRunsTheBackupAtItsMinuteAndArmsTheNextOne) {
    Scheduler scheduler(view);
    scheduler.Load();
    scheduler.Plan(0).backup.active = true;  // the default plan: every day at 02:02
    scheduler.Save(0);
    EXPECT_EQ(view.Text("TexteDateProchainBackup", 0), "lundi 23 novembre 2026 02:02");

    bool ranAt0202 = false;
    while (AppClock().Now() < MakeLocalTime(2026, 11, 23, 2, 3, 0)) {
        LocalTime before = AppClock().Now();
        scheduler.TimerMain_Timer();
        if (before < MakeLocalTime(2026, 11, 23, 2, 2, 0)) {
            EXPECT_EQ(Marker("Actif"), "ON");
            EXPECT_EQ(Marker("Date"), "23/11/2026 02:02:00");
            EXPECT_FALSE(fs::exists(dir.file("C/KV_Data/_Backup/Lundi")));
        } else if (!ranAt0202) {
            ranAt0202 = true;
            EXPECT_TRUE(fs::exists(dir.file("C/KV_Local/KV_Data/_Backup/Lundi/FRADA22.btr")));
            EXPECT_EQ(Marker("Actif"), "0FF");
            EXPECT_EQ(Marker("Start"), "0FF");
            EXPECT_EQ(view.Text("TexteDateProchainBackup", 0), "mardi 24 novembre 2026 02:02");
        }
        clock->Advance(std::chrono::seconds(30));
    }
    EXPECT_TRUE(ranAt0202);
    EXPECT_TRUE(scheduler.LastBackup(0).ran);
    EXPECT_TRUE(scheduler.LastBackup(0).failed) << "most of the catalogue's files are not here";
    EXPECT_EQ(Marker("Actif"), "ON") << "the next backup is announced at the following tick";
    EXPECT_EQ(Marker("Date"), "24/11/2026 02:02:00");
    std::string log = Log();
    size_t first = log.find("Schedule: Start Backup");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(log.find("Schedule: Start Backup", first + 1), std::string::npos) << "once";
    EXPECT_NE(log.find("Backup: Started"), std::string::npos);
}

TEST_F(SchedulerNight, ATickDuringARunStartsNothing) {
    Scheduler scheduler(view);
    scheduler.Load();
    scheduler.Plan(0).backup.active = true;
    scheduler.Save(0);
    clock->Set(MakeLocalTime(2026, 11, 23, 2, 2, 30));
    Operations().busy = true;
    scheduler.TimerMain_Timer();
    Operations().busy = false;
    EXPECT_FALSE(fs::exists(dir.file("C/KV_Data/_Backup/Lundi")));
    EXPECT_TRUE(scheduler.Backup(0).armed);
    EXPECT_EQ(Marker("Actif"), "<none>");
}

// Nothing here can run an export or an import yet: the tabs say so rather than show dates that
// will pass without anything happening.
TEST_F(SchedulerNight, APlanWhoseNatureCannotRunSaysSoInsteadOfADate) {
    Scheduler scheduler(view);
    scheduler.Load();
    BasePlan& plan = scheduler.Plan(0);
    plan.exportPlan = PlanOf({{true, 0, 2, 0}});
    plan.exportPlan.nature = 2;
    plan.importPlan = PlanOf({{true, 0, 2, 1}});
    plan.importPlan.nature = 0;
    scheduler.Save(0);
    EXPECT_EQ(view.Text("TexteDateProchainExport", 0),
              "Non disponible dans ce programme: Export NinSight");
    EXPECT_EQ(view.Text("TexteDateProchainImport", 0),
              "Non disponible dans ce programme: Import des stations");
    EXPECT_FALSE(scheduler.Export(0).armed);
    EXPECT_FALSE(scheduler.Import(0).armed);
    plan.exportPlan.nature = 7;  // written by a newer program
    scheduler.Save(0);
    EXPECT_EQ(view.Text("TexteDateProchainExport", 0),
              "Non disponible dans ce programme: Nature 7");
    plan.exportPlan.active = false;
    scheduler.Save(0);
    EXPECT_EQ(view.Text("TexteDateProchainExport", 0), "Non planifié");

    clock->Set(MakeLocalTime(2026, 11, 23, 2, 1, 30));
    scheduler.TimerMain_Timer();
    EXPECT_EQ(Log().find("Schedule: Start Import"), std::string::npos);
}

TEST_F(SchedulerNight, NaturesRunInOrderAndAnImportWithoutStationsSaysWhatIsMissing) {
    Scheduler scheduler(view);
    std::vector<std::string> ran;
    scheduler.exportRunners[2] = [&](int base) {
        ran.push_back("export2/" + std::to_string(base));
    };
    scheduler.importRunners[1] = [&](int base) {
        ran.push_back("import1/" + std::to_string(base));
    };
    scheduler.Load();
    BasePlan& plan = scheduler.Plan(0);
    plan.exportPlan = PlanOf({{true, 0, 2, 0}});
    plan.exportPlan.nature = 2;
    plan.importPlan = PlanOf({{true, 0, 2, 1}});
    plan.importPlan.nature = 1;
    scheduler.Save(0);
    EXPECT_EQ(view.Text("TexteDateProchainExport", 0), "lundi 23 novembre 2026 02:00");
    clock->Set(MakeLocalTime(2026, 11, 23, 2, 1, 30));
    scheduler.TimerMain_Timer();
    EXPECT_EQ(ran, std::vector<std::string>{"export2/0"});
    // Through the common message box, which the unattended program writes to its log.
    ASSERT_FALSE(dialogs.messages.empty());
    EXPECT_EQ(dialogs.messages.back().text, kImportStationsMissing);
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Exclamation);
    std::string log = Log();
    EXPECT_LT(log.find("Schedule: Start Export"), log.find("Schedule: Start Import"));
    EXPECT_EQ(log.find("Import Maya: Started"), std::string::npos);
    EXPECT_EQ(scheduler.Export(0).next, MakeLocalTime(2026, 11, 30, 2, 0, 0));
    EXPECT_NE(log.find("New import date: 30/11/2026 02:01:00"), std::string::npos);

    plan.stationsImport = "0100000002000000";  // source station 1, target station 2
    clock->Set(MakeLocalTime(2026, 11, 30, 2, 1, 30));
    scheduler.TimerMain_Timer();
    EXPECT_EQ(ran, (std::vector<std::string>{"export2/0", "export2/0", "import1/0"}));
    EXPECT_NE(Log().find("Import Maya: Started"), std::string::npos);
}

}  // namespace
}  // namespace toverin

#include "tools/DemoSite.h"

namespace toverin {
namespace {

TEST(SchedulerTwoBases, DueAtTheSameMinuteTheyRunOneAfterTheOtherInBaseOrder) {
    struct Site2 : testing::SiteFixture {
        void TestBody() override {}
    } site;
    site.clock->Set(MakeLocalTime(2026, 11, 23, 2, 0, 0));
    ASSERT_TRUE(CreateDemoSite(site.dir.folder(), DemoSize::Small, 7, AppClock().Now()).ok);
    DetermineDossierSettings();
    DetermineDossierSettingsApplication();
    DetermineFichierConfig();
    ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
    ASSERT_EQ(Site().baseCount, 2);

    RecordingView view;
    Scheduler scheduler(view);
    scheduler.Load();
    for (int b = 0; b < 2; ++b) {
        scheduler.Plan(b).backup.active = true;  // every day at 02:02
        scheduler.Save(b);
    }
    site.clock->Set(MakeLocalTime(2026, 11, 23, 2, 2, 10));
    scheduler.TimerMain_Timer();

    std::string log = site.Log();
    size_t first = log.find("Schedule: Start Backup");
    size_t second = log.find("Schedule: Start Backup", first + 1);
    ASSERT_NE(second, std::string::npos) << "both bases in the same tick";
    size_t base1 = log.find("Base1/FRAD000.bt6", first);
    size_t base2 = log.find("Base2/FRAD000.bt6", first);
    EXPECT_LT(base1, second) << "the first base's backup ends before the second starts";
    EXPECT_GT(base2, second);
    EXPECT_TRUE(scheduler.Backup(0).armed && scheduler.Backup(1).armed);
    EXPECT_TRUE(scheduler.LastBackup(1).ran);
    EXPECT_FALSE(scheduler.LastBackup(1).failed) << "a whole site";
    EXPECT_EQ(scheduler.Backup(1).next, MakeLocalTime(2026, 11, 24, 2, 2, 0));
}

}  // namespace
}  // namespace toverin
