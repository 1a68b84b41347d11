// Progress notices to the suite's players over UDP, at the address and port of the command line
// ("/IP=", "/Port="). Nothing is sent when no player is configured.
#pragma once

#include <string>

namespace toverin {

bool PlayersConfigured();
// Sends `text` as one datagram (Windows-1252); false when nothing could be sent.
bool SendToPlayers(const std::string& text);

}  // namespace toverin
