// Real FTP servers on loopback for the tests, each started by the test as its own process on a
// free port: Debian's pyftpdlib under the system Python (MLSD, and a few files that fail on
// demand), and vsftpd, which has no MLSD and lists in the Unix LIST form. Also two ways for a
// server to be unreachable: a port nobody listens on, and a listener that never says a word.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/TestSupport.h"

namespace toverin::testing {

enum class FtpServerKind { Pyftpdlib, Vsftpd };
const char* FtpServerName(FtpServerKind kind);

class FtpTestServer {
  public:
    static constexpr const char* kUser = "radio";
    static constexpr const char* kPassword = "Pw-7f3c-secret";
    // The password vsftpd refuses (its anonymous login takes any other).
    static constexpr const char* kRefusedPassword = "wrong-password";

    // Serves `root` on a free port of 127.0.0.1; waits (bounded) until it accepts connections.
    explicit FtpTestServer(const std::filesystem::path& root,
                           FtpServerKind kind = FtpServerKind::Pyftpdlib);
    ~FtpTestServer();
    FtpTestServer(const FtpTestServer&) = delete;
    FtpTestServer& operator=(const FtpTestServer&) = delete;

    bool ready() const { return port_ > 0; }
    FtpServerKind kind() const { return kind_; }
    int port() const { return port_; }
    // "127.0.0.1:port", as given to OpenConnection.
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    // The login: kUser for pyftpdlib; vsftpd, run without privileges, serves anonymous logins.
    std::string user() const;
    std::string password() const;
    // Where a login lands, as the server names it: "/" for pyftpdlib; vsftpd without privileges
    // cannot change its root, so there it is the served folder's own path.
    std::string home() const;
    // Every command line received so far, one a line (the password masked).
    std::string Commands() const;
    // How many received commands start with `verb` ("USER", "EPRT" ...).
    int CountCommands(std::string_view verb) const;
    void ClearCommands() const;

  private:
    void StartPyftpdlib(const std::filesystem::path& root);
    bool StartVsftpd(const std::filesystem::path& root);
    void Stop();

    FtpServerKind kind_;
    std::filesystem::path root_;
    TempDir state_;
    pid_t pid_ = -1;
    int port_ = 0;
};

// A loopback port on which nothing listens.
int UnusedLoopbackPort();

// Listens on loopback and never accepts: connections hang before the server's greeting.
class SilentListener {
  public:
    SilentListener();
    ~SilentListener();
    SilentListener(const SilentListener&) = delete;
    SilentListener& operator=(const SilentListener&) = delete;
    int port() const { return port_; }

  private:
    int fd_ = -1;
    int port_ = 0;
};

}  // namespace toverin::testing
