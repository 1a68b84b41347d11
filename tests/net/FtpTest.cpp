#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "app/DateTime.h"
#include "app/Log.h"
#include "net/Ftp.h"
#include "tests/support/FtpTestServer.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::FtpServerKind;
using testing::FtpServerName;
using testing::FtpTestServer;
using testing::ReadFile;
using testing::ScopedLogAndRegistry;
using testing::TempDir;
using testing::WriteFile;

// Deterministic, not compressible and free of line ends worth converting.
std::string Bytes(size_t n, unsigned seed = 7) {
    std::string s(n, '\0');
    uint32_t x = seed * 2654435761u + 1;
    for (auto& c : s) {
        x = x * 1664525u + 1013904223u;
        c = static_cast<char>(x >> 24);
    }
    return s;
}

// "A STOR", "I RETR" ...: each transfer command with the TYPE the server was in at the time.
std::vector<std::string> TransfersWithType(const std::string& commands) {
    std::vector<std::string> out;
    std::string type = "A";  // FTP's default
    size_t start = 0;
    while (start < commands.size()) {
        size_t end = commands.find('\n', start);
        std::string line = commands.substr(start, end - start);
        start = end == std::string::npos ? commands.size() : end + 1;
        if (line.rfind("TYPE ", 0) == 0) type = line.substr(5);
        if (line.rfind("STOR", 0) == 0 || line.rfind("RETR", 0) == 0)
            out.push_back(type + " " + line.substr(0, 4));
    }
    return out;
}

// Waits up to two seconds for `condition`.
bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 100; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

// Contains `needle` as the message of a log line (after the time and the three fields).
bool Logged(const std::string& log, const std::string& message) {
    return log.find(" : : :" + message) != std::string::npos;
}

// A server on a fresh folder, the log in a temporary folder, and a connected client; run against
// both real servers: pyftpdlib, which has MLSD, and vsftpd, which has not.
class FtpServerTest : public ::testing::TestWithParam<FtpServerKind> {
  protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready()) << "the loopback FTP server did not start";
        FtpErrorFlag() = false;
    }
    void Connect(cFTP& ftp) {
        ASSERT_TRUE(ftp.OpenConnection(server.address(), server.user(), server.password()))
            << env.LogText();
    }
    std::string Served(const std::string& name) const { return ReadFile(root / name); }
    // A folder under the login's landing folder, as the server names it.
    std::string Home(const std::string& sub = "") const {
        std::string home = server.home();
        if (sub.empty()) return home;
        return (home == "/" ? home : home + "/") + sub;
    }
    bool WithMlsd() const { return GetParam() == FtpServerKind::Pyftpdlib; }

    TempDir dir;
    ScopedLogAndRegistry env{dir};
    fs::path root = [this] {
        fs::create_directories(dir.path() / "root");
        return dir.path() / "root";
    }();
    FtpTestServer server{root, GetParam()};
};

INSTANTIATE_TEST_SUITE_P(BothServers, FtpServerTest,
                         ::testing::Values(FtpServerKind::Pyftpdlib, FtpServerKind::Vsftpd),
                         [](const auto& info) { return FtpServerName(info.param); });

// The failures only pyftpdlib can be made to produce (a full disk, a file that cannot be read).
class FtpFaultTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(server.ready()); }
    void Connect(cFTP& ftp) {
        ASSERT_TRUE(ftp.OpenConnection(server.address(), server.user(), server.password()));
    }
    TempDir dir;
    ScopedLogAndRegistry env{dir};
    fs::path root = [this] {
        fs::create_directories(dir.path() / "root");
        return dir.path() / "root";
    }();
    FtpTestServer server{root};
};

TEST(FtpPlan, BlocksOf256UpTo24576BytesThenOf24576) {
    auto same = [](FtpBlockPlan p, int64_t size, int64_t count, int64_t rest) {
        return p.blockSize == size && p.count == count && p.remainder == rest;
    };
    EXPECT_TRUE(same(PlanUploadBlocks(0), 256, 0, 0));
    EXPECT_TRUE(same(PlanUploadBlocks(300), 256, 1, 44));
    EXPECT_TRUE(same(PlanUploadBlocks(24576), 256, 96, 0));
    EXPECT_TRUE(same(PlanUploadBlocks(24577), 24576, 1, 1));
    EXPECT_TRUE(same(PlanUploadBlocks(3 * 24576), 24576, 3, 0));
}

TEST(FtpListingText, MlsdFactsNamesAndUtcToLocalTime) {
    auto entries = ParseMlsdListing(
        "type=cdir;modify=20260101000000; .\r\n"
        "type=pdir;modify=20260101000000; ..\r\n"
        "modify=20260315123045;perm=r;size=24577;type=file;unique=x; Jingle été; v2.mp3\r\n"
        "Type=DIR;Size=4096;Modify=20251231235959.250; Archives\r\n"
        "garbage-without-a-name\r\n");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "Jingle été; v2.mp3");
    EXPECT_EQ(entries[0].size, 24577);
    EXPECT_FALSE(entries[0].isDirectory);
    EXPECT_EQ(entries[1].name, "Archives");
    EXPECT_TRUE(entries[1].isDirectory);

    // The server's UTC stamp must read as the machine's local time of the same instant.
    std::tm utc{};
    utc.tm_year = 2026 - 1900;
    utc.tm_mon = 2;
    utc.tm_mday = 15;
    utc.tm_hour = 12;
    utc.tm_min = 30;
    utc.tm_sec = 45;
    std::time_t t = timegm(&utc);
    std::tm local{};
    localtime_r(&t, &local);
    auto expected = std::chrono::local_days{std::chrono::year{local.tm_year + 1900} /
                                            (local.tm_mon + 1) / local.tm_mday} +
                    std::chrono::hours{local.tm_hour} + std::chrono::minutes{local.tm_min} +
                    std::chrono::seconds{local.tm_sec};
    EXPECT_EQ(entries[0].date, LocalTime{expected});
    EXPECT_EQ((entries[1].date.time_since_epoch() % std::chrono::seconds(1)).count(), 250);
}

// The LIST lines of servers without MLSD: Unix (the year left out for recent files) and DOS.
TEST(FtpListingText, UnixAndDosListLines) {
    const LocalTime now = MakeLocalTime(2026, 11, 23, 13, 20, 0);
    auto unix = ParseListListing(
        "total 12\r\n"
        "drwxr-xr-x    2 1000     1000         4096 Mar 15 12:30 Archives\r\n"
        "-rw-r--r--    1 1000     1000        24577 Mar 15  2025 FRADB22.bt6\r\n"
        "-rw-r--r--    1 ftp      ftp             6 Nov 23 13:11 Jingle été;  v2.mp3\r\n"
        "lrwxrwxrwx    1 0        0              11 Jan 02 08:00 lien -> FRADB22.bt6\r\n"
        "-rw-r--r-- 1 owner 12 Dec 31 23:59 no-group.txt\r\n"
        "drwxr-xr-x 2 0 0 4096 Jan 01 00:00 .\r\n"
        "drwxr-xr-x 2 0 0 4096 Jan 01 00:00 ..\r\n"
        "garbage line\r\n",
        now);
    ASSERT_EQ(unix.size(), 5u);
    EXPECT_EQ(unix[0].name, "Archives");
    EXPECT_TRUE(unix[0].isDirectory);
    EXPECT_EQ(unix[0].date, MakeLocalTime(2026, 3, 15, 12, 30, 0));
    EXPECT_EQ(unix[1].size, 24577);
    EXPECT_EQ(unix[1].date, MakeLocalTime(2025, 3, 15));
    EXPECT_EQ(unix[2].name, "Jingle été;  v2.mp3") << "blanks in names are kept";
    EXPECT_EQ(unix[2].date, MakeLocalTime(2026, 11, 23, 13, 11, 0));
    EXPECT_EQ(unix[3].name, "lien");
    EXPECT_FALSE(unix[3].isDirectory);
    EXPECT_EQ(unix[4].name, "no-group.txt");
    EXPECT_EQ(unix[4].size, 12);
    EXPECT_EQ(unix[4].date, MakeLocalTime(2025, 12, 31, 23, 59, 0)) << "not ahead of now";

    auto dos = ParseListListing(
        "03-15-26  12:30PM       <DIR>          Archives\r\n"
        "03-15-26  08:05AM                24577 FRADB22.bt6\r\n"
        "11-23-2026  13:11                    6 Jingle été; v2.mp3\r\n"
        "12-31-99  11:59PM                   12 old.txt\r\n"
        "03-15-26  12:00AM                    1 midnight.txt\r\n",
        now);
    ASSERT_EQ(dos.size(), 5u);
    EXPECT_TRUE(dos[0].isDirectory);
    EXPECT_EQ(dos[0].date, MakeLocalTime(2026, 3, 15, 12, 30, 0));
    EXPECT_EQ(dos[1].size, 24577);
    EXPECT_EQ(dos[1].date, MakeLocalTime(2026, 3, 15, 8, 5, 0));
    EXPECT_EQ(dos[2].name, "Jingle été; v2.mp3");
    EXPECT_EQ(dos[2].date, MakeLocalTime(2026, 11, 23, 13, 11, 0));
    EXPECT_EQ(dos[3].date, MakeLocalTime(1999, 12, 31, 23, 59, 0));
    EXPECT_EQ(dos[4].date, MakeLocalTime(2026, 3, 15, 0, 0, 0));
}

TEST(FtpListingText, WindowsStyleNameMatching) {
    EXPECT_TRUE(FtpNameMatches("*.*", "NoDot"));
    EXPECT_TRUE(FtpNameMatches("", "anything"));
    EXPECT_TRUE(FtpNameMatches("*.BT6", "fradb22.bt6"));
    EXPECT_TRUE(FtpNameMatches("FRAD0??.btr", "FRAD003.btr"));
    EXPECT_FALSE(FtpNameMatches("FRAD0??.btr", "FRAD0003.btr"));
    EXPECT_TRUE(FtpNameMatches("a*b*c", "aXXbYYbZc"));
    EXPECT_FALSE(FtpNameMatches("a*b*c", "aXXbYYbZ"));
    EXPECT_FALSE(FtpNameMatches("*.mp3", "song.mp3.part"));
}

TEST(FtpClient, NewObjectIsAsciiActiveAndClosedAndFailsQuietlyWhenClosed) {
    TempDir dir;
    ScopedLogAndRegistry env(dir);
    cFTP ftp;
    EXPECT_EQ(ftp.TransferType(), 1);     // ASCII
    EXPECT_EQ(ftp.ConnectionMode(), 0u);  // active
    EXPECT_FALSE(ftp.IsOpenConnection());
    EXPECT_EQ(ftp.Directory(), "");
    EXPECT_EQ(ftp.GetLastErrorMessage(), "");

    EXPECT_FALSE(ftp.DeleteFTPFile("x"));
    EXPECT_FALSE(ftp.FTPUploadFile(dir.file("nothing"), "x"));
    EXPECT_EQ(ftp.GetFTPFileSize("x"), -1);
    EXPECT_TRUE(ftp.GetDirectoryListing().empty());
    EXPECT_EQ(ftp.GetFTPDirectory(), "");
    std::string log = env.LogText();
    EXPECT_TRUE(Logged(log, "Err: FTP: DeleteFTPFile 'x' (6 Not connected)"));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpOpenFile:PutFile: 'x' (6 Not connected)"));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpGetCurrentDirectory (6 Not connected)"));
    EXPECT_EQ(ftp.GetLastErrorMessage(),
              " |Sub: GetFTPDirectory:Cls_FTP Err: 6 Message: Not connected");
}

TEST_P(FtpServerTest, LoginListingWithSizesAndDatesOverOneControlConnection) {
    WriteFile(root / "FRADB22.bt6", Bytes(24577));
    WriteFile(root / "notes.txt", "hello\n");
    fs::create_directories(root / "Archives");
    // A known modification time: 2026-03-15 12:30:45 UTC.
    std::tm utc{};
    utc.tm_year = 126;
    utc.tm_mon = 2;
    utc.tm_mday = 15;
    utc.tm_hour = 12;
    utc.tm_min = 30;
    utc.tm_sec = 45;
    auto stamp = std::chrono::system_clock::from_time_t(timegm(&utc));
    fs::last_write_time(root / "FRADB22.bt6", fs::file_time_type::clock::from_sys(stamp));

    cFTP ftp;
    Connect(ftp);
    EXPECT_TRUE(ftp.IsOpenConnection());
    EXPECT_EQ(ftp.Directory(), Home());
    EXPECT_EQ(ftp.GetFTPDirectory(), Home());

    auto all = ftp.GetDirectoryListing();
    ASSERT_EQ(all.size(), 3u) << env.LogText();
    auto bt6 = ftp.GetDirectoryListing("*.BT6");
    ASSERT_EQ(bt6.size(), 1u);
    EXPECT_EQ(bt6[0].name, "FRADB22.bt6");
    EXPECT_EQ(bt6[0].size, 24577);
    EXPECT_FALSE(bt6[0].isDirectory);
    // To the second, from UTC: MLSD's fact, or the MDTM asked where there is only LIST.
    LocalTime exact;
    ASSERT_TRUE(ParseFtpTime("20260315123045", exact));
    EXPECT_EQ(bt6[0].date, exact);
    auto dirs = ftp.GetDirectoryListing("Arch*");
    ASSERT_EQ(dirs.size(), 1u);
    EXPECT_TRUE(dirs[0].isDirectory);

    EXPECT_EQ(ftp.GetFTPFileSize("notes.txt"), 6);
    EXPECT_EQ(ftp.GetFTPFileSize("FRADB22.bt6"), 24577);
    EXPECT_EQ(ftp.GetFTPFileSize("Archives"), -1) << "a folder has no size";
    if (WithMlsd()) {
        EXPECT_EQ(server.CountCommands("LIST"), 0);
    } else {
        // Found out once per connection; then LIST, and SIZE for the sizes.
        EXPECT_EQ(server.CountCommands("MLSD"), 1) << server.Commands();
        EXPECT_EQ(server.CountCommands("LIST"), 3);
        EXPECT_EQ(server.CountCommands("SIZE"), 3);
        EXPECT_GE(server.CountCommands("MDTM"), 2);
    }
    // Many commands, one login: the control connection is kept between them.
    EXPECT_EQ(server.CountCommands("USER"), 1) << server.Commands();
    EXPECT_EQ(server.CountCommands("PASS"), 1);
    EXPECT_EQ(server.Commands().find(server.password()), std::string::npos);

    // Opening again closes the first connection (QUIT) before logging in anew. The server may
    // write a command to its log a moment after it answered it.
    Connect(ftp);
    EXPECT_TRUE(Eventually([&] { return server.CountCommands("QUIT") == 1; })) << server.Commands();
    EXPECT_EQ(server.CountCommands("USER"), 2);
    ftp.CloseConnection();
    EXPECT_FALSE(ftp.IsOpenConnection());
    EXPECT_TRUE(Eventually([&] { return server.CountCommands("QUIT") == 2; }));
}

TEST_P(FtpServerTest, BinaryTransfersFollowTheBlockPlanAndKeepEveryByte) {
    cFTP ftp;
    ftp.SetTransferBinary();
    std::vector<int64_t> blocks;
    ftp.SetUploadBlockObserver([&](int64_t size) { blocks.push_back(size); });
    Connect(ftp);

    struct Case {
        size_t size;
        std::vector<int64_t> expectedBlocks;
    };
    std::vector<Case> cases = {
        {0, {}},
        {24576, std::vector<int64_t>(96, 256)},
        {24577, {24576, 1}},
        {3 * 1024 * 1024 + 7, {}},  // checked by sum and shape below
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.size);
        blocks.clear();
        std::string name = "file" + std::to_string(c.size) + ".bin";
        std::string bytes = Bytes(c.size, static_cast<unsigned>(c.size));
        WriteFile(dir.path() / name, bytes);
        ASSERT_TRUE(ftp.FTPUploadFile(dir.file(name), name)) << env.LogText();
        ASSERT_TRUE(fs::exists(root / name));
        EXPECT_TRUE(Served(name) == bytes) << "server holds " << Served(name).size() << " bytes";
        if (c.size < 1000000) {
            EXPECT_EQ(blocks, c.expectedBlocks);
        } else {
            ASSERT_EQ(blocks.size(), c.size / 24576 + 1);
            EXPECT_EQ(blocks.front(), 24576);
            EXPECT_EQ(blocks.back(), static_cast<int64_t>(c.size % 24576));
        }
        EXPECT_EQ(ftp.GetFTPFileSize(name), static_cast<int64_t>(c.size));

        std::string back = dir.file("back-" + name);
        ASSERT_TRUE(ftp.FTPDownloadFile(name, back)) << env.LogText();
        ASSERT_TRUE(fs::exists(back)) << "an empty remote file still gives a local file";
        EXPECT_TRUE(ReadFile(back) == bytes);
    }
    for (const auto& transfer : TransfersWithType(server.Commands()))
        EXPECT_EQ(transfer[0], 'I') << transfer;

    // A download appends to what the local file already holds.
    std::string local = dir.file("append.bin");
    WriteFile(local, "head:");
    WriteFile(root / "tail.bin", "tail");
    ASSERT_TRUE(ftp.FTPDownloadFile("tail.bin", local));
    EXPECT_EQ(ReadFile(local), "head:tail");
}

// libcurl sends TYPE A but hands over the file's bytes as they are; it is the server that turns
// CRLF into its own line end on the way in, and its line ends into CRLF on the way out. With both
// servers on this system that is: CRLF stored as LF, a lone LF stored as it is, and every LF read
// back as CRLF.
TEST_P(FtpServerTest, AsciiModeIsTheDefaultAndTheServerConvertsLineEnds) {
    cFTP ftp;
    Connect(ftp);
    WriteFile(dir.path() / "dos.txt", "one\r\ntwo\nthree\r\n");
    ASSERT_TRUE(ftp.FTPUploadFile(dir.file("dos.txt"), "dos.txt"));
    EXPECT_EQ(Served("dos.txt"), "one\ntwo\nthree\n") << server.Commands();

    WriteFile(root / "unix.txt", "a\nb\n");
    ASSERT_TRUE(ftp.FTPDownloadFile("unix.txt", dir.file("unix.txt")));
    EXPECT_EQ(ReadFile(dir.file("unix.txt")), "a\r\nb\r\n");

    ftp.SetTransferBinary();
    ASSERT_TRUE(ftp.FTPUploadFile(dir.file("dos.txt"), "dos-binary.txt"));
    EXPECT_EQ(Served("dos-binary.txt"), "one\r\ntwo\nthree\r\n");
    ASSERT_TRUE(ftp.FTPDownloadFile("unix.txt", dir.file("unix-binary.txt")));
    EXPECT_EQ(ReadFile(dir.file("unix-binary.txt")), "a\nb\n");
    std::vector<std::string> expected = {"A STOR", "A RETR", "I STOR", "I RETR"};
    EXPECT_EQ(TransfersWithType(server.Commands()), expected) << server.Commands();
}

TEST_P(FtpServerTest, ActiveModeByDefaultPassiveWhenAsked) {
    WriteFile(root / "in.txt", "data");
    WriteFile(dir.path() / "out.txt", "payload");
    cFTP ftp;
    ftp.SetTransferBinary();
    Connect(ftp);
    ftp.GetDirectoryListing();  // finds out whether the server has MLSD
    server.ClearCommands();
    ASSERT_TRUE(ftp.FTPUploadFile(dir.file("out.txt"), "active.txt"));
    ASSERT_TRUE(ftp.FTPDownloadFile("in.txt", dir.file("active-in.txt")));
    EXPECT_EQ(ftp.GetDirectoryListing().size(), 2u);
    EXPECT_EQ(ftp.GetFTPFileSize("active.txt"), 7);
    int active = server.CountCommands("EPRT") + server.CountCommands("PORT");
    EXPECT_EQ(active, 3 + (WithMlsd() ? 1 : 0)) << "the size is listed where there is MLSD\n"
                                                << server.Commands();
    EXPECT_EQ(server.CountCommands("EPSV") + server.CountCommands("PASV"), 0);

    server.ClearCommands();
    ftp.SetModePassive();
    ASSERT_TRUE(ftp.FTPUploadFile(dir.file("out.txt"), "passive.txt"));
    ASSERT_TRUE(ftp.FTPDownloadFile("in.txt", dir.file("passive-in.txt")));
    EXPECT_EQ(ftp.GetDirectoryListing().size(), 3u);
    EXPECT_EQ(ftp.GetFTPFileSize("passive.txt"), 7);
    EXPECT_EQ(server.CountCommands("EPSV") + server.CountCommands("PASV"), 3 + (WithMlsd() ? 1 : 0))
        << server.Commands();
    EXPECT_EQ(server.CountCommands("EPRT") + server.CountCommands("PORT"), 0);
    EXPECT_EQ(Served("active.txt"), "payload");
    EXPECT_EQ(Served("passive.txt"), "payload");
    EXPECT_EQ(ReadFile(dir.file("passive-in.txt")), "data");
}

TEST_P(FtpServerTest, DirectoryChangeDeleteAndRemove) {
    fs::create_directories(root / "Sons" / "Jingles");
    WriteFile(root / "Sons" / "a.mp3", "mp3");
    WriteFile(dir.path() / "up.txt", "up");
    cFTP ftp;
    Connect(ftp);

    ASSERT_TRUE(ftp.SetFTPDirectory("Sons"));
    EXPECT_EQ(ftp.Directory(), Home("Sons"));
    EXPECT_EQ(ftp.GetFTPDirectory(), Home("Sons"));
    auto here = ftp.GetDirectoryListing();
    ASSERT_EQ(here.size(), 2u);
    EXPECT_EQ(ftp.GetFTPFileSize("a.mp3"), 3);
    ASSERT_TRUE(ftp.FTPUploadFile(dir.file("up.txt"), "up.txt"));  // relative: into /Sons
    EXPECT_EQ(Served("Sons/up.txt"), "up");
    ASSERT_TRUE(ftp.SetFTPDirectory("Jingles"));
    EXPECT_EQ(ftp.Directory(), Home("Sons/Jingles"));
    ASSERT_TRUE(ftp.SetFTPDirectory(".."));
    EXPECT_EQ(ftp.Directory(), Home("Sons"));
    EXPECT_EQ(ftp.GetDirectoryListing(Home("Sons") + "/*.mp3").size(), 1u);

    EXPECT_FALSE(ftp.SetFTPDirectory("Missing"));
    EXPECT_EQ(ftp.Directory(), Home("Sons"));

    EXPECT_TRUE(ftp.DeleteFTPFile("a.mp3"));
    EXPECT_FALSE(fs::exists(root / "Sons" / "a.mp3"));
    EXPECT_FALSE(ftp.DeleteFTPFile("a.mp3"));
    EXPECT_FALSE(ftp.RemoveFTPDirectory(Home("Sons")));  // not empty
    EXPECT_TRUE(ftp.RemoveFTPDirectory("Jingles"));
    EXPECT_FALSE(fs::exists(root / "Sons" / "Jingles"));
    EXPECT_FALSE(ftp.RemoveFTPDirectory("Jingles"));

    std::string log = env.LogText();
    EXPECT_TRUE(Logged(log, "FtpSetCurrentDirectory Ok: 'Sons\r\n"));
    EXPECT_TRUE(Logged(log, "FtpSetCurrentDirectory Ok: '..\r\n"));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpSetCurrentDirectory 'Missing' (21 "));
    EXPECT_TRUE(Logged(log, "FTP: DeleteFTPFile Ok\r\n"));
    EXPECT_TRUE(Logged(log, "Err: FTP: DeleteFTPFile 'a.mp3' (21 "));
    EXPECT_TRUE(Logged(log, "Err: FTP: RemoveFTPDirectory (21 "));
    EXPECT_NE(log.find(") 'Jingles'\r\n"), std::string::npos);
}

TEST_P(FtpServerTest, FailuresAreLoggedInTheProgramsFormAndNeverThrown) {
    cFTP ftp;
    EXPECT_FALSE(ftp.OpenConnection(server.address(), server.user(), "wrong-password"));
    EXPECT_FALSE(ftp.IsOpenConnection());
    EXPECT_TRUE(FtpErrorFlag());
    std::string log = env.LogText();
    // A framed line: the frame, the message and the frame again.
    size_t at = log.find("Err: FTP: InternetConnect (67 Login denied");
    ASSERT_NE(at, std::string::npos) << log;
    EXPECT_NE(log.find(" : : :====="), std::string::npos);
    EXPECT_EQ(log.find("wrong-password"), std::string::npos);
    EXPECT_EQ(ftp.GetLastErrorMessage().rfind(" |Sub: OpenConnection:Cls_FTP Err: 67 Message: ", 0),
              0u);

    FtpErrorFlag() = false;
    Connect(ftp);
    EXPECT_FALSE(FtpErrorFlag());
    std::string local = dir.file("never.bin");
    EXPECT_FALSE(ftp.FTPDownloadFile("missing.bin", local));
    EXPECT_FALSE(fs::exists(local)) << "a failed download leaves no empty local file";
    EXPECT_FALSE(ftp.FTPUploadFile(dir.file("absent.bin"), "absent.bin"));
    EXPECT_FALSE(fs::exists(root / "absent.bin")) << "nothing created on the server";
    WriteFile(dir.path() / "x.txt", "x");
    EXPECT_FALSE(ftp.FTPUploadFile(dir.file("x.txt"), "NoSuchFolder/x.txt"));
    EXPECT_EQ(ftp.GetFTPFileSize("missing.bin"), -1);
    EXPECT_TRUE(ftp.GetDirectoryListing("NoSuchFolder/*").empty());
    EXPECT_TRUE(ftp.IsOpenConnection()) << "failed commands keep the connection";

    log = env.LogText();
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpOpenFile:GetFile: 'missing.bin' (78 "));
    EXPECT_TRUE(Logged(log, "Err: FTP: FTPUploadFile '" + dir.file("absent.bin") +
                                "' (2 No such file or directory)"));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpOpenFile:PutFile: 'NoSuchFolder/x.txt' ("));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpFindFirstFile (GetFTPFileSize)(78 "));
    EXPECT_TRUE(Logged(log, "Err: FTP: FtpFindFirstFile (GetDirectoryListing) ("));
    EXPECT_TRUE(Logged(log, " |Sub: FTPDownloadFile:Cls_FTP Err: 78 Message: "));
}

// The test server fails writes to "full-*" files after 50 bytes, like a full disk.
TEST_F(FtpFaultTest, BrokenUploadNamesTheWriteThatFailed) {
    cFTP ftp;
    ftp.SetTransferBinary();
    Connect(ftp);
    // Only a remainder block (100 bytes in the 256-byte plan): the failure is in it.
    WriteFile(dir.path() / "small.bin", Bytes(100));
    EXPECT_FALSE(ftp.FTPUploadFile(dir.file("small.bin"), "full-small.bin"));
    // Far more than any socket buffer: the failure arrives while whole blocks are being sent.
    WriteFile(dir.path() / "big.bin", Bytes(16 * 1024 * 1024 + 1));
    EXPECT_FALSE(ftp.FTPUploadFile(dir.file("big.bin"), "full-big.bin"));
    std::string log = env.LogText();
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetWriteFile/2 (")) << log;
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetWriteFile/1 (")) << log;
    EXPECT_TRUE(Logged(log, " |Sub: FTPUploadFile:Cls_FTP Err: ")) << log;
    // The reason given is the failure's, not a harmless note libcurl made on the way.
    EXPECT_EQ(log.find("inet_ntop"), std::string::npos) << log;
}

// A download read in blocks of 256 bytes and then the rest: the test server stops sending
// "cutN-*" files after their Nth byte. Where the failure falls names the read that failed, and
// a download that ends short is never a success.
TEST_F(FtpFaultTest, BrokenDownloadNamesTheReadThatFailed) {
    WriteFile(root / "cut100-early.bin", Bytes(1000));  // 3 blocks of 256, then 232 bytes
    WriteFile(root / "cut800-late.bin", Bytes(1000));
    // Each on a connection of its own: how the server ends one broken transfer is not the
    // other's business.
    auto download = [&](const std::string& name) {
        cFTP ftp;
        ftp.SetTransferBinary();
        ftp.SetModePassive();
        Connect(ftp);
        EXPECT_FALSE(ftp.FTPDownloadFile(name, dir.file(name))) << "a short download";
    };
    download("cut100-early.bin");
    std::string log = env.LogText();
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetReadFile (")) << log;
    EXPECT_EQ(log.find("InternetReadFile2"), std::string::npos);
    download("cut800-late.bin");
    EXPECT_TRUE(Logged(env.LogText(), "Err: FTP: InternetReadFile2 (")) << env.LogText();
}

TEST(FtpUnreachable, ServerDownOrSilentFailsWithinTheConnectTimeout) {
    TempDir dir;
    ScopedLogAndRegistry env(dir);
    FtpErrorFlag() = false;
    cFTP ftp;
    ftp.SetTimeouts(std::chrono::seconds(2), std::chrono::seconds(2));
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(
        ftp.OpenConnection("127.0.0.1:" + std::to_string(testing::UnusedLoopbackPort()), "u", "p"));
    EXPECT_TRUE(FtpErrorFlag());
    testing::SilentListener silent;
    ASSERT_GT(silent.port(), 0);
    EXPECT_FALSE(ftp.OpenConnection("127.0.0.1:" + std::to_string(silent.port()), "u", "p"));
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::seconds(8));
    EXPECT_FALSE(ftp.OpenConnection("", "u", "p"));

    std::string log = env.LogText();
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetConnect (7 Couldn't connect to server"));
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetConnect (28 Timeout was reached"));
    EXPECT_TRUE(Logged(log, "Err: FTP: InternetConnect (3 URL using bad/illegal format"));
}

}  // namespace
}  // namespace toverin
