// The user-interface event pump. Long operations run on the interface thread and call DoEvents()
// every few records so that the window, Pause and Stop stay alive; the UI installs the pump.
#pragma once

#include <functional>

namespace toverin {

void SetEventPump(std::function<void()> pump);
void DoEvents();

}  // namespace toverin
