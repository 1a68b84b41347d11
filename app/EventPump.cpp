#include "app/EventPump.h"

#include <atomic>
#include <thread>

namespace toverin {
namespace {
std::function<void()> gPump;
std::atomic<bool> gTermination{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
}  // namespace

void RequestTermination() {
    gTermination.store(true);
}
bool TerminationRequested() {
    return gTermination.load();
}
void ClearTermination() {
    gTermination.store(false);
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
