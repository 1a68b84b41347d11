// toverinctl ftp: the program's FTP client from the command line, so that a site's administrator
// can check a server, its account and its folders with exactly the client the program uses.
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>

#include "app/DateTime.h"
#include "app/Log.h"
#include "ctl/Ctl.h"
#include "net/Ftp.h"

namespace toverin::ctl {

namespace {

constexpr int kFtpFailed = 1;
constexpr int kUsageError = 2;
constexpr int kConnectFailed = 3;

const char* kFtpUsage =
    "usage: toverinctl ftp --server HOST[:PORT] --user U --password-file F [--passive] "
    "[--binary] [--cwd DIR]\n"
    "       {ls|put LOCAL REMOTE|get REMOTE LOCAL|rm NAME|rmdir NAME|size NAME}";

// The first line of the file, without its line end. The password is read from a file so that it
// never shows in a process list or a shell history.
bool ReadPassword(const std::string& file, std::string& password) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    std::getline(in, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    return !in.bad();
}

// The failure the client has just logged, without the log line's time and fields.
std::string LastFtpFailure(const cFTP& ftp) {
    auto lines = RecentLogLines(8);
    for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
        size_t at = it->find("Err: FTP: ");
        if (at != std::string::npos) return it->substr(at);
    }
    return ftp.GetLastErrorMessage();
}

int FtpFailed(const cFTP& ftp, int status = kFtpFailed) {
    return Fail("ftp: " + LastFtpFailure(ftp), status);
}

void PrintListing(const std::vector<FtpDirEntry>& entries) {
    for (const auto& e : entries) {
        std::cout << FormatDateTime(e.date) << "  " << std::setw(12) << e.size << "  " << e.name
                  << (e.isDirectory ? "/" : "") << "\n";
    }
}

}  // namespace

int RunFtpCommand(const Args& given) {
    Args args = given;
    std::string server, user, passwordFile, cwd, ignored;
    if (TakeOption(args, "--password", ignored))
        return Fail("ftp: the password is never given on the command line; use --password-file",
                    kUsageError);
    bool haveServer = TakeOption(args, "--server", server);
    bool haveUser = TakeOption(args, "--user", user);
    bool haveFile = TakeOption(args, "--password-file", passwordFile);
    bool passive = TakeFlag(args, "--passive");
    bool binary = TakeFlag(args, "--binary");
    bool changeDir = TakeOption(args, "--cwd", cwd);
    if (!haveServer || !haveUser || !haveFile)
        return Fail(
            std::string("ftp: --server, --user and --password-file are required\n") + kFtpUsage,
            kUsageError);
    for (const auto& a : args)
        if (a.rfind("--", 0) == 0) return Fail("ftp: unknown option '" + a + "'", kUsageError);

    static const std::map<std::string, size_t> operands = {{"ls", 0}, {"put", 2},   {"get", 2},
                                                           {"rm", 1}, {"rmdir", 1}, {"size", 1}};
    auto op = args.empty() ? operands.end() : operands.find(args[0]);
    if (op == operands.end() || args.size() != op->second + 1)
        return Fail(std::string("ftp: one action with its operands is expected\n") + kFtpUsage,
                    kUsageError);
    const std::string& action = args[0];

    std::string password;
    if (!ReadPassword(passwordFile, password))
        return Fail("ftp: cannot read the password file '" + passwordFile + "'", kUsageError);

    cFTP ftp;
    if (passive) ftp.SetModePassive();
    if (binary) ftp.SetTransferBinary();
    int status = 0;
    if (!ftp.OpenConnection(server, user, password)) {
        status = FtpFailed(ftp, kConnectFailed);
    } else if (changeDir && !ftp.SetFTPDirectory(cwd)) {
        status = FtpFailed(ftp);
    } else if (action == "ls") {
        auto entries = ftp.GetDirectoryListing();
        // An empty folder and a failed listing both give no entries. Nothing failed on this
        // object before, so an error message can only come from the listing.
        if (entries.empty() && !ftp.GetLastErrorMessage().empty()) status = FtpFailed(ftp);
        PrintListing(entries);
    } else if (action == "put") {
        if (!ftp.FTPUploadFile(args[1], args[2])) status = FtpFailed(ftp);
    } else if (action == "get") {
        if (!ftp.FTPDownloadFile(args[1], args[2])) status = FtpFailed(ftp);
    } else if (action == "rm") {
        if (!ftp.DeleteFTPFile(args[1])) status = FtpFailed(ftp);
    } else if (action == "rmdir") {
        if (!ftp.RemoveFTPDirectory(args[1])) status = FtpFailed(ftp);
    } else if (action == "size") {
        int64_t size = ftp.GetFTPFileSize(args[1]);
        if (size < 0) {
            status = FtpFailed(ftp);
        } else {
            std::cout << size << "\n";
        }
    }
    ftp.CloseConnection();
    TraceLogForce();
    return status;
}

}  // namespace toverin::ctl
