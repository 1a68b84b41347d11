#include "tests/support/FtpTestServer.h"

#include <arpa/inet.h>
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

FtpTestServer::FtpTestServer(const std::filesystem::path& root) {
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

FtpTestServer::~FtpTestServer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

std::string FtpTestServer::Commands() const {
    return ReadFile(state_.file("commands.log"));
}

int FtpTestServer::CountCommands(std::string_view verb) const {
    std::istringstream in(Commands());
    int count = 0;
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, verb.size(), verb) == 0) ++count;
    return count;
}

void FtpTestServer::ClearCommands() const {
    WriteFile(state_.file("commands.log"), "");
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
