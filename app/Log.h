// The program's log: TraceLog builds a line and keeps it in memory; TraceLogForce appends the
// pending lines to the day's ".Log" file of the current base's log folder, opening a new day's
// file with a header that describes the machine and the program. Logging never throws.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"

namespace toverin {

// "HH:MM:SS:mmm :" then the three one-character fields each followed by ":", then the message.
std::string FormatLogLine(LocalTime time, int f1, int f2, int f3, std::string_view message);
// The one-character form of a field: blank when negative, a digit, or a letter from 10 on.
char LogFieldChar(int value);

void TraceLog(int f1, int f2, int f3, std::string_view message);
inline void TraceLog(std::string_view message) {
    TraceLog(-1, -1, -1, message);
}
// Three lines: the frame character as many times as the message has characters, the message,
// and the frame again.
void TraceLogEncadre(int f1, int f2, int f3, std::string_view message, char frame);
inline void TraceLogEncadre(std::string_view message, char frame = '=') {
    TraceLogEncadre(-1, -1, -1, message, frame);
}
void TraceLogForce();
// Writes the pending lines when the last write is a second old: called by the timers and the work
// loops, so that the day's file keeps up even when no later line comes.
void TraceLogTick();

// The procedure trace: when on, procedures that support it log "Module:Name" as they start, so
// that a site's log shows the path that led to a fault.
bool& ProcedureTrace();
void TraceProcedure(std::string_view module, std::string_view name);

// What the day file's header says of the machine and the program.
struct LogIdentity {
    std::string version = TOVERIN_VERSION;
    std::string exeName = "Toverin";
    std::string productName = "Kavella: Toverin";
    std::string computerName;     // empty: asked of the system
    std::string theme;            // empty: from the registry's ThemeActive
    std::string operatingSystem;  // empty: asked of the system
    int baseNumber = 1;
    std::string radioIdentity;
};

struct LogSettings {
    bool enabled = true;
    std::string folder;  // the current base's log folder, ending with a separator
    LogIdentity identity;
};

LogSettings& LogConfig();

// The latest lines, newest last, for the options window.
std::vector<std::string> RecentLogLines(size_t max = 2000);
// The day file's path for `day` in the configured folder.
std::string LogFilePath(LocalTime day);
// Flags raised once per run when the machine has been up more than 45 and 48 days.
bool RebootNeeded45();
bool RebootNeeded48();
// Forgets the pending lines, the current file name and the once-per-run flags (tests, new site).
void ResetLog();

std::string OperatingSystemDisplayString();
std::string ComputerName();

}  // namespace toverin
