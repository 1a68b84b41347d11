// Replacing a record file by a finished copy in one step, so that a copy or a restore killed at
// any instant leaves the old file or the new one, never a half-written file under the real name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace toverin::engine {

// Whether the file at `path` may be replaced now: 0 when nothing is there or nobody uses it,
// 25 (file in use) when another connection has it open, 11 (invalid name) when something other
// than a regular file is there (a folder, a device).
int16_t CheckReplaceable(const std::string& path);

// Puts `finished`, a record file closed cleanly, in place of `target`. The target's own log and
// shared memory go with it, so that nothing of the old file is ever applied to the new one.
// `checkUse` runs CheckReplaceable first (callers that checked otherwise may skip its cost).
// Returns 0, the statuses of CheckReplaceable, or 2 (I/O error) with the system's error number
// in `systemError`.
int16_t ReplaceFile(const std::string& finished, const std::string& target, bool checkUse = true,
                    int* systemError = nullptr);

// The files the engine keeps beside a record file while it is open (log, shared memory,
// journal), and their removal before a file of that name is put in place.
std::vector<std::string> CompanionFiles(const std::string& path);
void RemoveCompanions(const std::string& path);

// Removes a file that was left unfinished and whatever the engine keeps beside it.
void RemoveUnfinished(const std::string& path);

}  // namespace toverin::engine
