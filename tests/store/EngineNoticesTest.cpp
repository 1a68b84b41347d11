// The engine's notices reach the day's log once per file and per day.
#include <gtest/gtest.h>

#include "app/DateTime.h"
#include "app/Log.h"
#include "store/EngineNotices.h"
#include "tests/store/EngineTestSupport.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using engine::EngineFile;
using testing::TempDir;

int Count(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

TEST(EngineNotices, AFileOnANetworkShareIsLoggedOnceADay) {
    TempDir dir;
    testing::ScopedLogAndRegistry logs(dir);
    testing::ScopedFakeClock clock(MakeLocalTime(2026, 3, 9, 8, 0));
    const std::string path = dir.file("FRADA22.bt6");
    ASSERT_EQ(EngineFile::Create(path, testing::SongFileBuf()), btr::kSuccess);
    LogEngineNotices();
    engine::SetFileSystemProbe([](const std::string&) { return std::string("cifs"); });
    struct Restore {
        ~Restore() {
            engine::SetEngineNotice(nullptr);
            engine::SetFileSystemProbe(nullptr);
        }
    } restore;

    auto openAndClose = [&] {
        EngineFile file;
        ASSERT_EQ(file.Open(path), btr::kSuccess);
    };
    const std::string line =
        "File: " + path + " |On a network file system (cifs): rollback journal instead of WAL";
    openAndClose();
    openAndClose();
    EXPECT_EQ(Count(logs.LogText(), line), 1);
    clock->Advance(std::chrono::hours(24));
    openAndClose();
    EXPECT_EQ(Count(logs.LogText(), line), 2);
    EXPECT_EQ(Count(testing::ReadFile(LogFilePath(clock->Now())), line), 1) << "the next day's";
}

}  // namespace
}  // namespace toverin
