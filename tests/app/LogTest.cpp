#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "app/DateTime.h"
#include "app/Log.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ScopedFakeClock;
using testing::ScopedLogAndRegistry;
using testing::TempDir;

TEST(LogLine, FieldsDigitsLettersBlanksAndTheMinusTwoRule) {
    LocalTime t = MakeLocalTime(2026, 3, 2, 9, 5, 7) + Milliseconds(42);
    EXPECT_EQ(FormatLogLine(t, -1, -1, -1, "Hello"), "09:05:07:042 : : : :Hello");
    EXPECT_EQ(FormatLogLine(t, 3, -1, 11, "X"), "09:05:07:042 :3: :B:X");
    EXPECT_EQ(FormatLogLine(t, 0, 9, 10, ""), "09:05:07:042 :0:9:A:");
    // Both of the last two fields at -2: the three fields are left out.
    EXPECT_EQ(FormatLogLine(t, 5, -2, -2, "Bare"), "09:05:07:042 :Bare");
    EXPECT_EQ(FormatLogLine(t, -2, -2, 4, "Kept"), "09:05:07:042 : : :4:Kept");
}

TEST(LogFile, HeaderOnFirstWriteOfEachDayAndFramedLines) {
    TempDir dir;
    ScopedFakeClock clock(MakeLocalTime(2026, 11, 21, 23, 59, 58));
    clock->SetUptimeSeconds(2 * 86400 + 3 * 3600 + 4 * 60 + 5);
    ScopedLogAndRegistry env(dir);
    LogConfig().identity.radioIdentity = "Radio Kavella";
    LogConfig().identity.computerName = "STUDIO1";

    TraceLogEncadre("Init", '=');
    TraceLogForce();
    clock->Advance(Milliseconds(5000));  // past midnight
    TraceLog("after midnight");
    TraceLogForce();

    std::string day1 = testing::ReadFile(LogFilePath(MakeLocalTime(2026, 11, 21)));
    std::string day2 = testing::ReadFile(LogFilePath(MakeLocalTime(2026, 11, 22)));
    EXPECT_NE(day1.find("==:==:==:====:=:=:=:System started since 2 D 3 H 4 Min 5 Sec\r\n"),
              std::string::npos);
    EXPECT_NE(day1.find("==:==:==:====:=:=:=:Computer.Name: STUDIO1\r\n"), std::string::npos);
    EXPECT_NE(day1.find("==:==:==:====:=:=:=:Id Radio: 1: Radio Kavella\r\n"), std::string::npos);
    EXPECT_NE(day1.find("23:59:58:000 : : : :====\r\n23:59:58:000 : : : :Init\r\n"
                        "23:59:58:000 : : : :====\r\n"),
              std::string::npos);
    EXPECT_EQ(day2.rfind("==:==:==:====:=:=:=:=====", 0), 0u) << "new day starts with its header";
    EXPECT_NE(day2.find("00:00:03:000 : : : :after midnight"), std::string::npos);
    EXPECT_EQ(day1.find("after midnight"), std::string::npos);
}

// A file's modification date set to a local date and time.
void SetWritten(const std::string& file, int year, int month, int day) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = 12;
    tm.tm_isdst = -1;
    auto instant = std::chrono::system_clock::from_time_t(std::mktime(&tm));
    std::filesystem::last_write_time(file,
                                     std::filesystem::file_time_type::clock::from_sys(instant));
}

// The lines are checked at every write of the day's file: a program that runs for weeks crosses
// them in the middle of a day, long after the file was opened.
TEST(LogFile, RebootLinesAtTheWriteThatCrossesThemOncePerRun) {
    TempDir dir;
    ScopedFakeClock clock(MakeLocalTime(2026, 11, 22, 8, 0, 0));
    clock->SetUptimeSeconds(44 * 86400);
    ScopedLogAndRegistry env(dir);
    TraceLog("one");
    TraceLogForce();
    EXPECT_EQ(env.LogText().find("Reboot needed"), std::string::npos);
    EXPECT_FALSE(RebootNeeded45());

    clock->SetUptimeSeconds(45 * 86400 + 1);
    clock->Advance(std::chrono::hours(2));  // the same day, the same file
    TraceLog("two");
    TraceLogForce();
    EXPECT_TRUE(RebootNeeded45());
    EXPECT_FALSE(RebootNeeded48());
    clock->SetUptimeSeconds(49 * 86400);
    TraceLog("three");
    TraceLogForce();
    TraceLog("four");
    TraceLogForce();
    std::string text = env.LogText();
    const std::string line45 = "Reboot needed because computer started since more 45 days";
    const std::string line48 = "Reboot needed because computer started since more 48 days";
    ASSERT_NE(text.find(line45), std::string::npos);
    EXPECT_GT(text.find(line45), text.find(":one\r\n"));
    EXPECT_EQ(text.find(line45, text.find(line45) + 1), std::string::npos) << "once per run";
    ASSERT_NE(text.find(line48), std::string::npos);
    EXPECT_EQ(text.find(line48, text.find(line48) + 1), std::string::npos);
    EXPECT_TRUE(RebootNeeded48());
}

// Every ".Log" file of the folder, whoever wrote it, by its date.
TEST(LogFile, ThePurgeTakesEveryOldLogFileOfTheFolder) {
    TempDir dir;
    ScopedFakeClock clock(MakeLocalTime(2026, 11, 22, 8, 0, 0));
    ScopedLogAndRegistry env(dir);
    const std::string f = env.logFolder;
    testing::WriteFile(f + "Toverin_20261001.Log", "old\r\n");
    testing::WriteFile(f + "Diffusion_2026-09-30.Log", "another program's\r\n");
    testing::WriteFile(f + "OLD.LOG", "upper case\r\n");
    testing::WriteFile(f + "Toverin_20261010.Log", "kept\r\n");
    testing::WriteFile(f + "notes.txt", "not a log\r\n");
    for (const char* name : {"Toverin_20261001.Log", "Diffusion_2026-09-30.Log", "OLD.LOG"})
        SetWritten(f + name, 2026, 10, 6);                 // 47 days before
    SetWritten(f + "Toverin_20261010.Log", 2026, 10, 10);  // 43 days before
    SetWritten(f + "notes.txt", 2025, 1, 1);

    TraceLog("one");
    TraceLogForce();
    EXPECT_FALSE(std::filesystem::exists(f + "Toverin_20261001.Log"));
    EXPECT_FALSE(std::filesystem::exists(f + "Diffusion_2026-09-30.Log"));
    EXPECT_FALSE(std::filesystem::exists(f + "OLD.LOG"));
    EXPECT_TRUE(std::filesystem::exists(f + "Toverin_20261010.Log"));
    EXPECT_TRUE(std::filesystem::exists(f + "notes.txt"));
    EXPECT_TRUE(std::filesystem::exists(LogFilePath(AppClock().Now())));
}

TEST(LogFile, UnwritableFolderLosesTheBatchWithoutThrowing) {
    TempDir dir;
    ScopedLogAndRegistry env(dir);
    testing::WriteFile(dir.file("blocker"), "x");
    const std::string folder = LogConfig().folder;
    LogConfig().folder = dir.file("blocker") + "/sub/";
    EXPECT_NO_THROW({
        TraceLog("lost");
        TraceLogForce();
    });
    EXPECT_EQ(testing::ReadFile(dir.file("blocker")), "x") << "nothing written over the file";

    // The folder back: later lines are written, the lost batch is not carried along.
    LogConfig().folder = folder;
    TraceLog("kept");
    TraceLogForce();
    const std::string day = testing::ReadFile(LogFilePath(AppClock().Now()));
    EXPECT_NE(day.find("kept"), std::string::npos);
    EXPECT_EQ(day.find("lost"), std::string::npos);
}

}  // namespace
}  // namespace toverin
