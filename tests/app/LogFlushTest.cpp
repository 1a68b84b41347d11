// The day's file keeps up with the log: a line pending since a second is written by the next
// tick of the timers or of a work loop, without waiting for a later line, and a framed line is
// written at once; so a killed run leaves its log up to its last second.
#include <gtest/gtest.h>

#include "app/DateTime.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

TEST(LogFlush, PendingLinesReachTheFileWithinASecondAndFramedLinesAtOnce) {
    testing::TempDir dir;
    testing::ScopedFakeClock clock(MakeLocalTime(2026, 11, 23, 2, 2, 0));
    testing::ScopedLogAndRegistry env(dir);
    const std::string file = LogFilePath(AppClock().Now());
    auto written = [&] { return testing::ReadFile(file); };

    TraceLog("first");  // opens the day's file at once
    TraceLog("Backup: Open target local file: FRADA22.btr.new");
    EXPECT_EQ(written().find("FRADA22"), std::string::npos) << "pending, less than a second old";
    TraceLogTick();
    EXPECT_EQ(written().find("FRADA22"), std::string::npos);
    clock->Advance(Milliseconds(1001));
    ServeEvents();  // a work loop serving the interface every 20 records
    EXPECT_NE(written().find("FRADA22"), std::string::npos);

    TraceLog("pending");
    TraceLogEncadre("Backup: Ended. Duration: 0 min 01 s", '=');
    EXPECT_NE(written().find(":pending\r\n"), std::string::npos);
    EXPECT_NE(written().find(":Backup: Ended. Duration: 0 min 01 s\r\n"), std::string::npos);
}

}  // namespace
}  // namespace toverin
