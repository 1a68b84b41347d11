// cFTP (module Cls_FTP): the program's FTP client. One object holds one connection at a time: a
// single libcurl handle kept for the whole connection, so that every command after the login
// travels over the same control connection. Every failure is written to the log as
// "Err: FTP: " + the failing call + " (" + libcurl's error number and text + ")" and the method
// returns false or an empty result; nothing is thrown to the caller.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"
#include "net/FtpListing.h"

namespace toverin {

// Raised when a connection cannot be opened; the transfer windows read it and lower it.
bool& FtpErrorFlag();

// How an upload cuts a file into writes: `count` blocks of `blockSize` bytes, then `remainder`
// bytes (none when 0). Large files go in 24,576-byte blocks, the others in 256-byte blocks.
struct FtpBlockPlan {
    int64_t blockSize = 0;
    int64_t count = 0;
    int64_t remainder = 0;
};
FtpBlockPlan PlanUploadBlocks(int64_t length);

// A failure number of cFTP in the user's words, for the windows (the log keeps libcurl's text).
std::string FtpFailureText(int number);

class cFTP {
  public:
    static constexpr int kTransferAscii = 1;
    static constexpr int kTransferBinary = 2;
    static constexpr uint32_t kModeActive = 0;
    static constexpr uint32_t kModePassive = 0x8000000;
    // Neutral on purpose: servers log it, and it should not advertise the suite.
    static constexpr const char* kAgentName = "FTP client 1.0";

    cFTP();
    ~cFTP();
    cFTP(const cFTP&) = delete;
    cFTP& operator=(const cFTP&) = delete;

    bool IsOpenConnection() const;
    // The current remote directory as last set or read (absolute, as the server writes it).
    const std::string& Directory() const { return directory_; }
    std::string GetLastErrorMessage() const { return lastErrorMessage_; }
    // The number of the last failure (libcurl's codes; 0 before any), for FtpFailureText.
    int GetLastErrorNumber() const { return lastErrorNumber_; }
    // `server` is "host" or "host:port" (port 21 when absent); an open connection is closed first.
    bool OpenConnection(const std::string& server, const std::string& user,
                        const std::string& password);
    void CloseConnection();
    bool RemoveFTPDirectory(const std::string& name);
    bool DeleteFTPFile(const std::string& name);
    bool FTPUploadFile(const std::string& localPath, const std::string& remoteName);
    // Appends the remote file's bytes to the local file (created when missing).
    bool FTPDownloadFile(const std::string& remoteName, const std::string& localPath);
    // Asks the server; empty on failure.
    std::string GetFTPDirectory();
    bool SetFTPDirectory(const std::string& name);
    // Size in bytes as the server lists it; -1 when the file is not there or the listing fails.
    int64_t GetFTPFileSize(const std::string& name);
    // Entries of the current directory (or of the folder part of `pattern`) whose names match the
    // last part of `pattern` ('*' and '?', case ignored; "*.*" and "" match everything).
    std::vector<FtpDirEntry> GetDirectoryListing(const std::string& pattern = "*.*");
    void SetTransferASCII() { transferType_ = kTransferAscii; }
    void SetTransferBinary() { transferType_ = kTransferBinary; }
    void SetModeActive() { connectionMode_ = kModeActive; }
    void SetModePassive() { connectionMode_ = kModePassive; }
    // Builds " |Sub: " + procedure + " Err: " + number + " Message: " + text from the last failed
    // call, keeps it as the last error message and logs it.
    void ErrorOut(std::string_view procedure);

    int TransferType() const { return transferType_; }
    uint32_t ConnectionMode() const { return connectionMode_; }

    // A dead or silent server must not freeze the program: connecting (up to the server's
    // greeting, or its call back in active mode) is bounded by `connect`, and a transfer or a
    // reply that makes no progress for `stall` fails.
    void SetTimeouts(std::chrono::seconds connect, std::chrono::seconds stall);

    // Told the size of each upload block once the whole block has been handed to libcurl.
    void SetUploadBlockObserver(std::function<void(int64_t)> observer) {
        blockObserver_ = std::move(observer);
    }

  private:
    struct Session;
    struct Request;

    bool RequireConnection();
    bool RemoteCommand(const std::string& command, const std::string& name);
    std::string ErrorString() const;
    int Perform(Request& request);
    void Fail(std::string_view procedure, const std::string& line, bool framed = false);
    void SetLastError(int number, std::string text);
    std::string CurlErrorText(int code, bool withBuffer) const;
    std::string Resolve(const std::string& name) const;
    // The entries of `folder`, by MLSD or, on a server without it, by LIST; `partial` when some of
    // the listing came before a failure.
    bool List(const std::string& folder, std::vector<FtpDirEntry>& entries, bool& partial);
    void ExactDates(const std::string& folder, std::vector<FtpDirEntry>& entries);
    std::optional<int64_t> FileSize(const std::string& path, bool& partial);
    // Sends one command on the control connection; false only when the connection failed.
    bool Ask(const std::string& command, std::string& reply);
    std::optional<int64_t> SizeIn(const std::vector<FtpDirEntry>& entries, const std::string& name);

    std::unique_ptr<Session> session_;  // none: not connected
    int transferType_ = kTransferAscii;
    uint32_t connectionMode_ = kModeActive;
    std::string directory_;
    std::string lastErrorMessage_;
    int lastErrorNumber_ = 0;
    std::string lastErrorText_;
    std::chrono::seconds connectTimeout_{15};
    std::chrono::seconds stallTimeout_{60};
    std::function<void(int64_t)> blockObserver_;
};

}  // namespace toverin
