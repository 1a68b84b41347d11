#include "app/EventPump.h"

#include <thread>

#include "app/Log.h"

namespace toverin {
namespace {
std::function<void()> gPump;
}

void SetEventPump(std::function<void()> pump) {
    gPump = std::move(pump);
}

void DoEvents() {
    TraceLogTick();
    if (gPump) {
        gPump();
    } else {
        // No interface: give the processor back instead of spinning hot in busy waits.
        std::this_thread::yield();
    }
}

void ServeEvents() {
    TraceLogTick();
    if (gPump) gPump();
}

}  // namespace toverin
