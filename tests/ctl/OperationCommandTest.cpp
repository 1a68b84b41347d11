// toverinctl checks before it acts: its command line before any site is read, a site that is not
// there is refused and not made, values out of range are named, targets that are not regular
// files are never replaced, and the exit status says failure whenever a file failed.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "app/Paths.h"
#include "app/Site.h"
#include "store/Pervasive.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::RunCaptured;
using testing::TempDir;

// HOME and TOVERIN_ROOT pointed away from the user's for the test's lifetime.
struct ScopedEnvironment {
    explicit ScopedEnvironment(const std::string& home) {
        if (const char* h = std::getenv("HOME")) oldHome = h;
        if (const char* r = std::getenv("TOVERIN_ROOT")) oldRoot = r;
        setenv("HOME", home.c_str(), 1);
        unsetenv("TOVERIN_ROOT");
    }
    ~ScopedEnvironment() {
        setenv("HOME", oldHome.c_str(), 1);
        if (!oldRoot.empty()) setenv("TOVERIN_ROOT", oldRoot.c_str(), 1);
        ResetSite();
        ResetRecordAccess();
    }
    std::string oldHome, oldRoot;
};

bool Empty(const fs::path& folder) {
    return fs::is_empty(folder);
}

TEST(OperationCommands, NothingIsReadOrMadeBeforeTheCommandLineAndTheSiteAreRight) {
    TempDir home;
    ScopedEnvironment env(home.path().string());

    auto bare = RunCaptured({"backup"});
    EXPECT_EQ(bare.status, ctl::kExitUsage);
    EXPECT_NE(bare.err.find("backup: --base N (0 = the first base) is required"),
              std::string::npos);
    auto letters = RunCaptured({"backup", "--base", "one"});
    EXPECT_EQ(letters.status, ctl::kExitUsage);
    EXPECT_NE(letters.err.find("not 'one'"), std::string::npos);
    auto badList = RunCaptured({"restore", "--base", "0", "--day", "lundi", "--stations", "1,x"});
    EXPECT_EQ(badList.status, ctl::kExitUsage);
    EXPECT_NE(badList.err.find("'x' is not a number or a range"), std::string::npos);
    auto badFiles =
        RunCaptured({"create", "--base", "0", "--stations", "1", "--files", "22,60", "--yes"});
    EXPECT_EQ(badFiles.status, ctl::kExitUsage);
    EXPECT_NE(badFiles.err.find("--files 60: out of range (0..50)"), std::string::npos);
    EXPECT_TRUE(Empty(home.path())) << "no skeleton site in the home folder";

    // No --root, no TOVERIN_ROOT, no site in the home folder: refused, nothing made.
    auto noSite = RunCaptured({"backup", "--base", "0"});
    EXPECT_EQ(noSite.status, ctl::kExitFailed);
    EXPECT_NE(noSite.err.find("backup: site not found: " + home.folder() + "Kavella/"),
              std::string::npos);
    EXPECT_TRUE(Empty(home.path()));

    // A folder that holds no site is not taken for one.
    TempDir elsewhere;
    auto notASite = RunCaptured({"backup", "--root", elsewhere.folder(), "--base", "0"});
    EXPECT_EQ(notASite.status, ctl::kExitFailed);
    EXPECT_NE(notASite.err.find("holds no Settings/KV3_Config.ini"), std::string::npos);
    EXPECT_TRUE(Empty(elsewhere.path())) << "nothing built, nothing backed up";

    // The content tools say it the same way: one line, the same status, nothing made.
    const std::vector<ctl::Args> tools = {
        {"equivalence", "show", "--root", elsewhere.folder(), "--base", "0"},
        {"import-xml", "--root", elsewhere.folder(), "x.xml", "--base", "0", "--station", "1"},
        {"duplicate", "labels", "--root", elsewhere.folder(), "--base", "0", "--source", "1",
         "--targets", "2"}};
    for (const ctl::Args& tool : tools) {
        auto refused = RunCaptured(tool);
        EXPECT_EQ(refused.status, ctl::kExitFailed) << tool[0];
        EXPECT_EQ(refused.err.rfind("toverinctl: " + tool[0], 0), 0u) << refused.err;
        EXPECT_NE(refused.err.find(": site not found: "), std::string::npos) << refused.err;
        EXPECT_EQ(refused.err.find("could not be read"), std::string::npos) << refused.err;
        EXPECT_TRUE(Empty(elsewhere.path())) << tool[0];
    }
}

TEST(OperationCommands, OnASiteValuesAreNamedFailedFilesToldAndTargetsProtected) {
    TempDir home, dir;
    ScopedEnvironment env(home.path().string());
    const std::string root = dir.folder() + "site/";
    ASSERT_EQ(RunCaptured({"demo", "create", root, "--size", "small"}).status, 0);

    auto again = RunCaptured({"demo", "create", root, "--size", "small"});
    EXPECT_EQ(again.status, ctl::kExitFailed);
    EXPECT_NE(again.err.find("already holds a site"), std::string::npos);

    auto base = RunCaptured({"backup", "--root", root, "--base", "5"});
    EXPECT_EQ(base.status, ctl::kExitUsage);
    EXPECT_NE(base.err.find("backup: --base 5: the site has 2 base(s) (0..1)"), std::string::npos);
    // The content tools name a base the site lacks the same way.
    for (const std::string tool : {"equivalence", "import-xml"}) {
        ctl::Args args =
            tool == "equivalence"
                ? ctl::Args{"equivalence", "show", "--root", root, "--base", "5"}
                : ctl::Args{"import-xml", "--root", root, "x.xml", "--base", "5", "--station", "1"};
        auto refused = RunCaptured(args);
        EXPECT_EQ(refused.status, ctl::kExitUsage) << tool;
        EXPECT_NE(refused.err.find(tool + ": --base 5: the site has 2 base(s) (0..1)"),
                  std::string::npos)
            << refused.err;
    }
    auto stations = RunCaptured(
        {"restore", "--root", root, "--base", "0", "--day", "Lundi", "--stations", "2-4"});
    EXPECT_EQ(stations.status, ctl::kExitUsage);
    EXPECT_NE(stations.err.find("restore: --stations 4: base 0 has 3 station(s) (1..3)"),
              std::string::npos);

    // One source missing: the exit status says failure and names the file.
    const std::string data = root + "C/KV_Data/Base1/";
    fs::rename(data + "FRADB22.bt6", dir.file("FRADB22.bt6"));
    auto backup = RunCaptured({"backup", "--root", root, "--base", "0"});
    EXPECT_EQ(backup.status, ctl::kExitFailed);
    EXPECT_NE(backup.out.find("1 file(s) failed: FRADB22.bt6"), std::string::npos) << backup.out;
    fs::rename(dir.file("FRADB22.bt6"), data + "FRADB22.bt6");
    backup = RunCaptured({"backup", "--root", root, "--base", "0"});
    EXPECT_EQ(backup.status, 0) << backup.out << backup.err;

    // The local root serves a restore when the server's is gone.
    fs::remove_all(data + "_Backup");
    auto restore = RunCaptured({"restore", "--root", root, "--base", "0", "--day", "Lundi",
                                "--stations", "1", "--files", "22", "--from", "local"});
    EXPECT_EQ(restore.status, 0) << restore.out << restore.err;
    EXPECT_NE(restore.out.find("(local root): 1 file(s) restored"), std::string::npos);

    // A device or a folder is never replaced by a copy.
    for (const std::string& target : {std::string("/dev/null"), dir.folder()}) {
        auto copy = RunCaptured({"file", "copy", data + "FRADA22.bt6", target});
        EXPECT_EQ(copy.status, ctl::kExitFailed) << target;
        EXPECT_NE(copy.err.find("is not a regular file; nothing was written"), std::string::npos);
        auto create = RunCaptured({"file", "create", target, "--catalogue", "22"});
        EXPECT_EQ(create.status, ctl::kExitFailed) << target;
    }
    struct stat st {};
    ASSERT_EQ(stat("/dev/null", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
}

}  // namespace
}  // namespace toverin
