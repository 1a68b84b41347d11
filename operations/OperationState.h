// Flags the long operations share with the buttons and the scheduler: the program-wide busy flag,
// and per base the stop request, the pause and the running backup.
#pragma once

#include <array>
#include <functional>

#include "app/Site.h"

namespace toverin {

struct OperationFlags {
    bool busy = false;  // a long operation runs: scheduler ticks return at once
    std::array<bool, kMaxBases> stopRequested{};
    std::array<bool, kMaxBases> paused{};
    std::array<bool, kMaxBases> backupRunning{};
};

OperationFlags& Operations();

// Sets the busy flag for its lifetime (restoring what it was, so nested runs stay busy).
class BusyScope {
  public:
    BusyScope() : previous_(Operations().busy) { Operations().busy = true; }
    ~BusyScope() { Operations().busy = previous_; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

  private:
    bool previous_;
};

// Called when a backup of a base ended normally, so the planning can show the next date.
std::function<void(int base)>& AfterBackupHook();

}  // namespace toverin
