#include <gtest/gtest.h>

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

TEST(LogFile, RebootLinesOncePerRunAndOldFilesPurged) {
    TempDir dir;
    ScopedFakeClock clock(MakeLocalTime(2026, 11, 22, 8, 0, 0));
    clock->SetUptimeSeconds(49 * 86400);
    ScopedLogAndRegistry env(dir);
    testing::WriteFile(env.logFolder + "Toverin_20261001.Log", "old\r\n");   // 52 days old
    testing::WriteFile(env.logFolder + "Toverin_20261010.Log", "kept\r\n");  // 43 days old
    testing::WriteFile(env.logFolder + "Other.Log", "not ours\r\n");

    TraceLog("one");
    TraceLogForce();
    std::string text = env.LogText();
    EXPECT_NE(text.find("Reboot needed because computer started since more 45 days"),
              std::string::npos);
    EXPECT_NE(text.find("Reboot needed because computer started since more 48 days"),
              std::string::npos);
    EXPECT_TRUE(RebootNeeded45());
    EXPECT_TRUE(RebootNeeded48());
    EXPECT_FALSE(std::filesystem::exists(env.logFolder + "Toverin_20261001.Log"));
    EXPECT_TRUE(std::filesystem::exists(env.logFolder + "Toverin_20261010.Log"));
    EXPECT_TRUE(std::filesystem::exists(env.logFolder + "Other.Log"));
}

TEST(LogFile, UnwritableFolderLosesTheBatchWithoutThrowing) {
    TempDir dir;
    ScopedLogAndRegistry env(dir);
    testing::WriteFile(dir.file("blocker"), "x");
    LogConfig().folder = dir.file("blocker") + "/sub/";
    TraceLog("lost");
    TraceLogForce();
    SUCCEED();
}

}  // namespace
}  // namespace toverin
