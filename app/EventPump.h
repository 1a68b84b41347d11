// The user-interface event pump. Long operations run on the interface thread and call
// ServeEvents() every few records so that the window, Pause and Stop stay alive; waits call
// DoEvents() in their loop. The UI installs the pump.
#pragma once

#include <functional>

namespace toverin {

void SetEventPump(std::function<void()> pump);
// For waits: serves the interface, or without one gives the processor back.
void DoEvents();
// A stop asked by the system (SIGTERM, Ctrl-C). RequestTermination is safe in a signal handler;
// waits end at once once it is set, and the start-up goes no further.
void RequestTermination();
bool TerminationRequested();
void ClearTermination();

// For loops with work to do: serves the interface when there is one, and otherwise returns at
// once (a backup without a window has nothing to serve and no reason to give way).
void ServeEvents();

}  // namespace toverin
