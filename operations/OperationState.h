// Flags the long operations share with their buttons and with the window: per base the stop
// request and the pause of a backup, and the program's shutdown, which asks whatever runs to stop
// without a question. Which run holds the program is app/LongRun's.
#pragma once

#include <array>

#include "app/Site.h"

namespace toverin {

struct OperationFlags {
    std::array<bool, kMaxBases> stopRequested{};
    std::array<bool, kMaxBases> paused{};
    // The program is closing (SIGTERM, "Quitter"): runs stop at once, without asking.
    bool shutdown = false;
};

OperationFlags& Operations();

// Asks every run to stop for the program's shutdown: stop requests set, pauses ended.
void RequestShutdownStop();
// The program is closing: asked by the window, or by the system (SIGTERM) before the window
// could hear of it.
bool ShuttingDown();

}  // namespace toverin
