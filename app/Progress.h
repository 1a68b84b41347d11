// How a long operation tells what it is doing without touching widgets: typed events, sent to an
// observer that the caller hands it. The window gives each page its own observer and maps the
// events onto that page's widgets; tests record them; unattended runs keep no window.
//
// Every event concerns the run it is sent by: the base and the kind of operation are known to
// whoever created the observer, so they are not repeated here.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "app/Clock.h"

namespace toverin::progress {

// How a run ended.
enum class Outcome {
    Finished,    // ran to its end, every file done
    Incomplete,  // ran to its end, but some files failed
    Stopped,     // the user (or a shutdown) stopped it
    Failed,      // an error ended it early
    Refused,     // it did not start (bad settings, another run under way)
};

struct Started {
    LocalTime time;
    std::string caption;  // the window's caption while the run lasts
};
struct Ended {
    LocalTime time;
    long long seconds = 0;
    Outcome outcome = Outcome::Finished;
    std::string summary;  // one line for the page (failed files, records), may be empty
};
// The file being worked on: its position among the files to do (1-based) and its label.
struct FileReached {
    int index = 0;
    int count = 0;
    std::string label;
};
struct StationReached {
    int station = 0;  // 0: before the first
    int count = 0;
};
// Records of the current file done so far, of those expected (0: unknown).
struct RecordsDone {
    long long done = 0;
    long long expected = 0;
};
// The key or the record reached, as text fit for a label ("" clears it).
struct KeyReached {
    std::string key;
};
struct ItemReached {
    std::string text;
};
// A named phase of a run ("" clears it).
struct PhaseChanged {
    std::string phase;
};
// The day being worked on, as shown.
struct DayReached {
    std::string day;
};
// A backup was recorded as the last good one of its weekday (Monday = 1).
struct BackupRecorded {
    int weekday = 1;
    LocalTime time;
};
// Whether the run's Stop and Pause can be used.
struct ControlsEnabled {
    bool enabled = false;
};
// The run was paused or resumed.
struct Paused {
    bool paused = false;
};

using Event =
    std::variant<Started, Ended, FileReached, StationReached, RecordsDone, KeyReached, ItemReached,
                 PhaseChanged, DayReached, BackupRecorded, ControlsEnabled, Paused>;

}  // namespace toverin::progress

namespace toverin {

class ProgressObserver {
  public:
    virtual ~ProgressObserver() = default;
    virtual void OnProgress(const progress::Event& event) = 0;
};

// Nobody watches (command line, tests that do not care).
class NullProgress final : public ProgressObserver {
  public:
    void OnProgress(const progress::Event&) override {}
};

// Keeps every event, for tests.
class RecordingProgress final : public ProgressObserver {
  public:
    void OnProgress(const progress::Event& event) override { events.push_back(event); }

    // The latest event of kind T, or nullptr.
    template <typename T>
    const T* Last() const {
        for (auto it = events.rbegin(); it != events.rend(); ++it)
            if (const T* e = std::get_if<T>(&*it)) return e;
        return nullptr;
    }
    template <typename T>
    std::vector<T> All() const {
        std::vector<T> found;
        for (const auto& event : events)
            if (const T* e = std::get_if<T>(&event)) found.push_back(*e);
        return found;
    }

    std::vector<progress::Event> events;
};

}  // namespace toverin
