#include "net/Players.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app/Startup.h"
#include "app/Text.h"

namespace toverin {

bool PlayersConfigured() {
    return !Trim(Startup().TargetIPAddress).empty() && Startup().TargetIPPort > 0;
}

bool SendToPlayers(const std::string& text) {
    if (!PlayersConfigured()) return false;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(Startup().TargetIPPort));
    if (inet_pton(AF_INET, Trim(Startup().TargetIPAddress).c_str(), &to.sin_addr) != 1)
        return false;
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    std::string bytes = Cp1252FromUtf8(text);
    bool ok = ::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to),
                       sizeof to) == static_cast<ssize_t>(bytes.size());
    ::close(fd);
    return ok;
}

}  // namespace toverin
