#include "tests/support/FtpTestServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

namespace toverin::testing {

namespace {

constexpr const char* kPython = "/usr/bin/python3";  // the one with python3-pyftpdlib
constexpr int kStartTimeoutMs = 15000;
constexpr const char* kLifetimeSeconds = "300";  // the server ends itself if a test dies

int BoundLoopbackSocket(int& port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        ::close(fd);
        return -1;
    }
    port = ntohs(addr.sin_port);
    return fd;
}

}  // namespace

const char* FtpServerName(FtpServerKind kind) {
    return kind == FtpServerKind::Vsftpd ? "vsftpd" : "pyftpdlib";
}

FtpTestServer::FtpTestServer(const std::filesystem::path& root, FtpServerKind kind)
    : kind_(kind), root_(root) {
    if (kind == FtpServerKind::Pyftpdlib) {
        StartPyftpdlib(root);
        return;
    }
    // The free port is found before vsftpd binds it: another process may take it meanwhile.
    for (int attempt = 0; attempt < 3 && !StartVsftpd(root); ++attempt) Stop();
}

void FtpTestServer::StartPyftpdlib(const std::filesystem::path& root) {
    int out[2];
    if (::pipe(out) != 0) return;
    std::string script = std::string(TOVERIN_SOURCE_DIR) + "/tests/support/ftp_test_server.py";
    std::string rootText = root.string();
    std::string log = state_.file("commands.log");
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::close(out[0]);
        ::close(out[1]);
        ::execl(kPython, kPython, script.c_str(), rootText.c_str(), kUser, kPassword, log.c_str(),
                kLifetimeSeconds, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(out[1]);
    if (pid_ < 0) {
        ::close(out[0]);
        return;
    }
    std::string text;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
    while (text.find('\n') == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd p{out[0], POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
        char buffer[256];
        ssize_t n = ::read(out[0], buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    ::close(out[0]);
    if (text.rfind("READY ", 0) == 0) port_ = std::stoi(text.substr(6));
}

bool FtpTestServer::StartVsftpd(const std::filesystem::path& root) {
    const int port = UnusedLoopbackPort();
    const std::string config = state_.file("vsftpd.conf");
    WriteFile(state_.file("refused"), std::string(kRefusedPassword) + "\n");
    // Without privileges vsftpd runs as whoever started it and serves anonymous logins only; it
    // writes and deletes as that user, converts line ends in ASCII mode as FTP means it to, and
    // logs every command.
    WriteFile(config, "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=" +
                          std::to_string(port) +
                          "\nbackground=NO\nrun_as_launching_user=YES\n"
                          "isolate=NO\nisolate_network=NO\nseccomp_sandbox=NO\n"
                          "anonymous_enable=YES\nlocal_enable=NO\nanon_root=" +
                          root.string() +
                          "\nwrite_enable=YES\nanon_upload_enable=YES\n"
                          "anon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
                          "anon_world_readable_only=NO\nanon_umask=022\n"
                          "deny_email_enable=YES\nbanned_email_file=" +
                          state_.file("refused") +
                          "\nascii_upload_enable=YES\nascii_download_enable=YES\n"
                          "pasv_enable=YES\nport_enable=YES\nconnect_from_port_20=NO\n"
                          "xferlog_enable=NO\nsyslog_enable=NO\nlog_ftp_protocol=YES\n"
                          "dual_log_enable=YES\nvsftpd_log_file=" +
                          state_.file("vsftpd.log") +
                          "\nidle_session_timeout=300\ndata_connection_timeout=60\n");
    pid_ = ::fork();
    if (pid_ == 0) {
        // Its own process group, so that its sessions go with it; and an end of its own should
        // the test die first.
        ::setpgid(0, 0);
        int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execl("/usr/bin/timeout", "timeout", kLifetimeSeconds, "/usr/sbin/vsftpd", config.c_str(),
                static_cast<char*>(nullptr));
        ::_exit(127);
    }
    if (pid_ < 0) return false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;  // it could not listen
            return false;
        }
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        addr.sin_port = htons(static_cast<uint16_t>(port));
        bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        ::close(fd);
        if (up) {
            port_ = port;
            ClearCommands();  // the probe above is not a client of the test
            return true;
        }
        ::usleep(50000);
    }
    return false;
}

void FtpTestServer::Stop() {
    if (pid_ > 0) {
        if (kind_ == FtpServerKind::Vsftpd) {
            ::kill(-pid_, SIGKILL);
        } else {
            ::kill(pid_, SIGKILL);
        }
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
    port_ = 0;
}

FtpTestServer::~FtpTestServer() {
    Stop();
}

std::string FtpTestServer::user() const {
    return kind_ == FtpServerKind::Vsftpd ? "anonymous" : kUser;
}

std::string FtpTestServer::password() const {
    return kind_ == FtpServerKind::Vsftpd ? "toverin@kavella.example" : kPassword;
}

std::string FtpTestServer::home() const {
    if (kind_ == FtpServerKind::Pyftpdlib) return "/";
    std::error_code ec;
    return std::filesystem::canonical(root_, ec).string();
}

std::string FtpTestServer::Commands() const {
    if (kind_ == FtpServerKind::Pyftpdlib) return ReadFile(state_.file("commands.log"));
    // 'Mon Nov 23 13:11:53 2026 [pid 9424] [ftp] FTP command: Client "127.0.0.1", "LIST"'
    std::istringstream in(ReadFile(state_.file("vsftpd.log")));
    std::string out;
    const std::string mark = "FTP command: Client \"";
    for (std::string line; std::getline(in, line);) {
        size_t at = line.find(mark);
        if (at == std::string::npos) continue;
        size_t open = line.find(", \"", at + mark.size());
        if (open == std::string::npos || line.size() < open + 4) continue;
        std::string command = line.substr(open + 3, line.size() - open - 4);
        if (command.rfind("PASS", 0) == 0) command = "PASS ******";
        out += command + "\n";
    }
    return out;
}

int FtpTestServer::CountCommands(std::string_view verb) const {
    std::istringstream in(Commands());
    int count = 0;
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, verb.size(), verb) == 0) ++count;
    return count;
}

void FtpTestServer::ClearCommands() const {
    WriteFile(state_.file(kind_ == FtpServerKind::Vsftpd ? "vsftpd.log" : "commands.log"), "");
}

int UnusedLoopbackPort() {
    int port = 0;
    int fd = BoundLoopbackSocket(port);
    if (fd >= 0) ::close(fd);  // bound but never listened: connections are refused
    return port;
}

SilentListener::SilentListener() {
    fd_ = BoundLoopbackSocket(port_);
    if (fd_ >= 0 && ::listen(fd_, 4) != 0) {
        ::close(fd_);
        fd_ = -1;
        port_ = 0;
    }
}

SilentListener::~SilentListener() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace toverin::testing
