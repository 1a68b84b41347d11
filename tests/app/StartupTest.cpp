#include <gtest/gtest.h>

#include "app/DateTime.h"
#include "app/EventPump.h"
#include "app/Startup.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ScopedFakeClock;
using testing::ScopedLogAndRegistry;
using testing::TempDir;

class CommandLine : public ::testing::Test {
  protected:
    void SetUp() override { ResetStartup(); }
    TempDir dir;
    ScopedFakeClock clock{MakeLocalTime(2026, 11, 22, 10, 0, 0)};
    ScopedLogAndRegistry env{dir};
};

TEST_F(CommandLine, OptionsInAnyCaseAndOrderWithClampsAndDigitRuns) {
    DetermineChaineDeCommande("  /port=80.5 /ip=10.0.0.1 /Port=5000 /BACKUP_BASE=12  ");
    EXPECT_EQ(Startup().ChaineDeCommande, "/port=80.5 /ip=10.0.0.1 /Port=5000 /BACKUP_BASE=12");
    EXPECT_EQ(Startup().BackupBase, 7);
    EXPECT_EQ(Startup().TargetIPAddress, "10.0.0.1");
    EXPECT_EQ(Startup().TargetIPPort, 80) << "the first occurrence counts; 80.5 rounds to even";
    std::string log = env.LogText();
    EXPECT_NE(log.find(":Command Line: '/port=80.5 /ip=10.0.0.1 /Port=5000 /BACKUP_BASE=12'"),
              std::string::npos);
    EXPECT_NE(log.find(":Backup Base: 7\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Target IP Address: 10.0.0.1\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Target IP Port: 80\r\n"), std::string::npos);
}

TEST_F(CommandLine, MalformedValuesReadAsZeroOrEmpty) {
    DetermineChaineDeCommande("/Backup_Base=-3 /IP= x /Port=abc");
    EXPECT_EQ(Startup().BackupBase, 0) << "the minus sign stops the digit run";
    EXPECT_EQ(Startup().TargetIPAddress, "");
    EXPECT_EQ(Startup().TargetIPPort, 0);

    ResetStartup();
    DetermineChaineDeCommande("/IP=10.0.0.1 /Port=5000");
    EXPECT_EQ(Startup().TargetIPAddress, "10.0.0.1") << "a blank ends the address";
    EXPECT_EQ(Startup().TargetIPPort, 5000);

    ResetStartup();
    DetermineChaineDeCommande("/Backup_Base=b");
    EXPECT_EQ(Startup().BackupBase, 0);
    EXPECT_TRUE(CommandLineAsksBackup(Startup().ChaineDeCommande));
}

TEST_F(CommandLine, EmptyLineLogsNothing) {
    DetermineChaineDeCommande("   ");
    EXPECT_EQ(env.LogText().find("Command Line"), std::string::npos);
}

TEST_F(CommandLine, WaitTakesTheLeadingDigitsAndWaitsAtLeastThatLong) {
    clock->SetAutoAdvance(Milliseconds(10));
    uint64_t before = GetTickCount64();
    DetermineChaineDeCommande("/Wait=3000ms /Backup_Base=2");
    uint64_t after = GetTickCount64();
    EXPECT_GE(after - before, 3000u);
    EXPECT_NE(env.LogText().find(":WaitDuration: 3000\r\n"), std::string::npos);
    EXPECT_EQ(Startup().BackupBase, 2);

    before = GetTickCount64();
    DetermineChaineDeCommande("/Wait=");
    EXPECT_LT(GetTickCount64() - before, 100u) << "no digits: no wait";
}

// "/Wait=" is a 32-bit signed field and "/Backup_Base=" a 16-bit one: beyond their range a value
// is malformed and reads as 0 (2147483648 used to wait for 24 days with the processor busy).
TEST_F(CommandLine, ValuesBeyondTheirFieldReadAsZero) {
    clock->SetAutoAdvance(Milliseconds(10));
    uint64_t before = GetTickCount64();
    DetermineChaineDeCommande("/Wait=2147483648 /Backup_Base=40000 /Port=99999999999");
    EXPECT_LT(GetTickCount64() - before, 100u);
    EXPECT_EQ(Startup().BackupBase, 0);
    EXPECT_EQ(Startup().TargetIPPort, 0);
    std::string log = env.LogText();
    EXPECT_NE(log.find(":WaitDuration: 0\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Backup Base: 0\r\n"), std::string::npos);

    ResetStartup();
    DetermineChaineDeCommande("/Backup_Base=32767 /Port=2147483647");
    EXPECT_EQ(Startup().BackupBase, 7) << "in range: clamped";
    EXPECT_EQ(Startup().TargetIPPort, 2147483647);
}

// SIGTERM or Ctrl-C: the handler raises the stop request and the wait under way ends at once.
TEST_F(CommandLine, AStopRequestEndsAWaitAtOnce) {
    clock->SetAutoAdvance(Milliseconds(10));
    int rounds = 0;
    SetEventPump([&] {
        if (++rounds == 50) RequestTermination();
    });
    uint64_t before = GetTickCount64();
    DetermineChaineDeCommande("/Wait=2147483647 /Backup_Base=3");
    SetEventPump(nullptr);
    EXPECT_TRUE(TerminationRequested());
    EXPECT_LT(GetTickCount64() - before, 2000u);
    WaitOnDuration(100000);  // and every later wait too
    EXPECT_LT(GetTickCount64() - before, 2000u);
    ClearTermination();
}

TEST_F(CommandLine, StandbyOnlyForTheExactWordInAnyCase) {
    EXPECT_TRUE(CommandLineAsksStandby("/veille=true"));
    EXPECT_TRUE(CommandLineAsksStandby("x /VEILLE=TRUE y"));
    EXPECT_FALSE(CommandLineAsksStandby("/Veille=1"));
}

TEST(TickCount, WrapsSafelyOnA32BitSource) {
    ScopedFakeClock clock(MakeLocalTime(2026, 1, 1));
    clock->SetTick(0xFFFFFF00u);
    uint64_t a = GetTickCount64();
    clock->SetTick(0x00000100u);  // the counter wrapped
    uint64_t b = GetTickCount64();
    EXPECT_EQ(b - a, 0x200u);
    clock->SetTick(0x00000200u);
    EXPECT_EQ(GetTickCount64() - b, 0x100u);
}

TEST(Arguments, RootOptionIsTakenOutOfTheSuiteCommandLine) {
    std::string root;
    EXPECT_EQ(JoinArguments({"--root", "/srv/kv", "/Veille=True", "/IP=1.2.3.4"}, root),
              "/Veille=True /IP=1.2.3.4");
    EXPECT_EQ(root, "/srv/kv");
    EXPECT_EQ(JoinArguments({"--root=/x"}, root), "");
    EXPECT_EQ(root, "/x");
}

}  // namespace
}  // namespace toverin
