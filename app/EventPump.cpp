#include "app/EventPump.h"

#include <thread>

namespace toverin {
namespace {
std::function<void()> gPump;
}

void SetEventPump(std::function<void()> pump) {
    gPump = std::move(pump);
}

void DoEvents() {
    if (gPump) {
        gPump();
    } else {
        // No interface: give the processor back instead of spinning hot in busy waits.
        std::this_thread::yield();
    }
}

void ServeEvents() {
    if (gPump) gPump();
}

}  // namespace toverin
