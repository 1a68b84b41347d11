#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <sstream>

#include "ctl/Ctl.h"
#include "tests/support/FtpTestServer.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::FtpTestServer;
using testing::ReadFile;
using testing::WriteFile;

struct CtlRun {
    int status = 0;
    std::string out;
    std::string err;
};

CtlRun Ctl(const ctl::Args& args) {
    std::ostringstream out, err;
    auto* oldOut = std::cout.rdbuf(out.rdbuf());
    auto* oldErr = std::cerr.rdbuf(err.rdbuf());
    CtlRun result;
    result.status = ctl::RunCtl(args);
    std::cout.rdbuf(oldOut);
    std::cerr.rdbuf(oldErr);
    result.out = out.str();
    result.err = err.str();
    return result;
}

class FtpCommandTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready());
        WriteFile(passwordFile, std::string(FtpTestServer::kPassword) + "\r\n");
    }
    // "ftp --server ... --user ... --password-file ..." followed by `rest`.
    ctl::Args Ftp(const ctl::Args& rest) const {
        ctl::Args a = {"ftp",   "--server",        server.address(), "--user",
                       "radio", "--password-file", passwordFile};
        a.insert(a.end(), rest.begin(), rest.end());
        return a;
    }

    testing::TempDir dir;
    testing::ScopedLogAndRegistry env{dir};
    fs::path root = [this] {
        fs::create_directories(dir.path() / "root" / "Export");
        return dir.path() / "root";
    }();
    std::string passwordFile = dir.file("ftp.pwd");
    FtpTestServer server{root};
};

TEST_F(FtpCommandTest, PutLsSizeGetRmAndRmdirInAFolder) {
    WriteFile(dir.path() / "FRADB22.bt6", std::string(30000, '\x01'));
    CtlRun put = Ctl(Ftp({"--binary", "--passive", "--cwd", "Export", "put",
                          dir.file("FRADB22.bt6"), "FRADB22.bt6"}));
    ASSERT_EQ(put.status, 0) << put.err;
    EXPECT_EQ(ReadFile(root / "Export" / "FRADB22.bt6"), std::string(30000, '\x01'));
    EXPECT_GE(server.CountCommands("EPSV"), 1);

    CtlRun ls = Ctl(Ftp({"--cwd", "/Export", "ls"}));
    ASSERT_EQ(ls.status, 0) << ls.err;
    EXPECT_NE(ls.out.find("       30000  FRADB22.bt6\n"), std::string::npos) << ls.out;
    // "DD/MM/YYYY HH:MM:SS", the size on twelve columns, the name; a folder ends with "/".
    EXPECT_EQ(Ctl(Ftp({"ls"})).out.find("Export/\n"), 35u);

    CtlRun size = Ctl(Ftp({"size", "Export/FRADB22.bt6"}));
    EXPECT_EQ(size.status, 0);
    EXPECT_EQ(size.out, "30000\n");

    CtlRun get = Ctl(Ftp({"--binary", "get", "/Export/FRADB22.bt6", dir.file("copy.bt6")}));
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_EQ(ReadFile(dir.file("copy.bt6")), std::string(30000, '\x01'));

    EXPECT_EQ(Ctl(Ftp({"rm", "Export/FRADB22.bt6"})).status, 0);
    EXPECT_EQ(Ctl(Ftp({"rmdir", "Export"})).status, 0);
    EXPECT_FALSE(fs::exists(root / "Export"));
}

TEST_F(FtpCommandTest, ExitCodesAndMessagesNeverShowThePassword) {
    CtlRun missing = Ctl(Ftp({"get", "nothing.txt", dir.file("nothing.txt")}));
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(
        missing.err.rfind("toverinctl: ftp: Err: FTP: FtpOpenFile:GetFile: 'nothing.txt' (", 0), 0u)
        << missing.err;
    EXPECT_EQ(Ctl(Ftp({"size", "nothing.txt"})).status, 1);
    EXPECT_EQ(Ctl(Ftp({"--cwd", "Nowhere", "ls"})).status, 1);

    WriteFile(passwordFile, "not-the-password\n");
    CtlRun denied = Ctl(Ftp({"ls"}));
    EXPECT_EQ(denied.status, 3);
    EXPECT_NE(denied.err.find("Err: FTP: InternetConnect (67 "), std::string::npos) << denied.err;
    EXPECT_EQ(denied.err.find("not-the-password"), std::string::npos);
    EXPECT_EQ(env.LogText().find("not-the-password"), std::string::npos);
    EXPECT_EQ(env.LogText().find(FtpTestServer::kPassword), std::string::npos);

    CtlRun down =
        Ctl({"ftp", "--server", "127.0.0.1:" + std::to_string(testing::UnusedLoopbackPort()),
             "--user", "radio", "--password-file", passwordFile, "ls"});
    EXPECT_EQ(down.status, 3);

    // Mistakes of the command line itself: status 2, nothing sent to any server.
    server.ClearCommands();
    EXPECT_EQ(Ctl(Ftp({"put", "only-one-operand"})).status, 2);
    EXPECT_EQ(Ctl(Ftp({"chmod", "x"})).status, 2);
    EXPECT_EQ(Ctl(Ftp({"--verbose", "ls"})).status, 2);
    EXPECT_EQ(Ctl({"ftp", "--server", server.address(), "--user", "radio", "ls"}).status, 2);
    CtlRun onCommandLine = Ctl(Ftp({"--password", "secret", "ls"}));
    EXPECT_EQ(onCommandLine.status, 2);
    EXPECT_NE(onCommandLine.err.find("--password-file"), std::string::npos);
    CtlRun noFile = Ctl({"ftp", "--server", server.address(), "--user", "radio", "--password-file",
                         dir.file("absent.pwd"), "ls"});
    EXPECT_EQ(noFile.status, 2);
    EXPECT_EQ(server.Commands(), "");
}

}  // namespace
}  // namespace toverin
