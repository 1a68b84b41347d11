// A real FTP server on loopback for the tests (Debian's pyftpdlib under the system Python), and
// two ways for a server to be unreachable: a port nobody listens on, and a listener that never
// says a word.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/TestSupport.h"

namespace toverin::testing {

class FtpTestServer {
  public:
    static constexpr const char* kUser = "radio";
    static constexpr const char* kPassword = "Pw-7f3c-secret";

    // Serves `root` to kUser on a free port of 127.0.0.1; waits (bounded) for its ready line.
    explicit FtpTestServer(const std::filesystem::path& root);
    ~FtpTestServer();
    FtpTestServer(const FtpTestServer&) = delete;
    FtpTestServer& operator=(const FtpTestServer&) = delete;

    bool ready() const { return port_ > 0; }
    int port() const { return port_; }
    // "127.0.0.1:port", as given to OpenConnection.
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    // Every command line received so far, one a line (the password masked).
    std::string Commands() const;
    // How many received commands start with `verb` ("USER", "EPRT" ...).
    int CountCommands(std::string_view verb) const;
    void ClearCommands() const;

  private:
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
