// The record engine's notices in the program's day log.
#pragma once

namespace toverin {

// Sends what the record engine notices (a file on a network share opened with a rollback journal
// instead of the shared-memory log) to the day's log, each line once a day however often the
// file is opened. Each program calls it once at start.
void LogEngineNotices();

}  // namespace toverin
