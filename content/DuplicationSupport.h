// What the two procedures of Lib_Duplication share: the station selection, the record fields
// they rewrite (found by name once per run rather than for every record), and record calls that
// count the failures the access layer reported.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"
#include "app/Errors.h"
#include "app/LongRun.h"
#include "app/Progress.h"
#include "app/Site.h"
#include "store/Pervasive.h"

namespace toverin::duplication {

inline constexpr const char* kModule = "Lib_Duplication";

// The selected stations among the base's, in station order.
std::vector<int> SelectedStations(int base, const std::array<bool, kMaxStations>& targets);

// One field of a file's layout, found by name (and occurrence) when the run starts.
class FieldRef {
  public:
    FieldRef() = default;
    // Throws std::invalid_argument when the layout has no such field.
    FieldRef(int fileNumber, std::string_view name, int occurrence = 0);

    std::string_view In(const std::string& record) const {
        return std::string_view(record).substr(offset_, width_);
    }
    // The field without blanks at either end.
    std::string Trimmed(const std::string& record) const;
    // Writes `bytes` (Windows-1252), cut or padded with blanks to the width.
    void Set(std::string& record, std::string_view bytes) const;
    // Copies the field from `from`; true when that changed `to`.
    bool CopyFrom(const std::string& from, std::string& to) const;
    // The field read as a decimal number (0 when it holds no digits).
    long long Number(const std::string& record) const;
    // Writes the number on the field's width, zero-padded.
    void SetNumber(std::string& record, long long value) const;
    uint16_t width() const { return width_; }

  private:
    uint16_t offset_ = 0;
    uint16_t width_ = 0;
};

// A key of `length` bytes: `head`, then `fill` bytes ('\0' for a low bound, '\xFF' for a high
// one).
std::string KeyBound(std::string_view head, size_t length, char fill);

// Record calls through a bank that count what the access layer reported: any status other than
// success, key not found, duplicate key and end of file.
class Calls {
  public:
    Calls(SlotBank& bank, int base) : bank_(bank), base_(base) {}
    // The call; returns the status.
    int16_t operator()(uint16_t operation, std::string& data, std::string& key, int keyNumber,
                       int fileNumber, int station, const std::string& caller);
    // Reports a failure that a quiet call left to its caller.
    void Report(int fileNumber, int station, const std::string& caller, int operation);
    long long errors() const { return errors_; }
    SlotBank& bank() { return bank_; }

  private:
    SlotBank& bank_;
    int base_;
    long long errors_ = 0;
};

// Opens one file of a station in `openMode`, the bank kept quiet: a file that cannot be opened
// is logged and named in a message box, and the result is false.
bool OpenStationFile(SlotBank& bank, int base, int station, int fileNumber, int8_t openMode,
                     const std::string& procedure);

// The frame of a run: the program's long run held, Started told once the run's checks and
// questions are passed (its duration leaves their time out), the end framed in the log.
class RunFrame {
  public:
    // `logName` heads the log's lines; `activity` followed by the base's label names the run to
    // a start it refuses.
    RunFrame(ProgressObserver& observer, std::string logName, const std::string& activity,
             int base);

    // Holds the program and asks `validate`; false when another run holds the program or
    // `validate` refuses (the caller ends as refused). True: the run is started and told.
    bool Begin(const std::function<bool()>& validate);
    // The end of a run that went through: the log's framed last line with the duration, then
    // `done` shown, or `done` with the error count and the way to the log; the run's outcome.
    progress::Outcome Finish(const std::string& done, long long errors) const;
    // Tells the end of the run, however it ended.
    void End(progress::Outcome outcome, const std::string& summary) const;
    // End, with `outcome` recorded in the run's `result`, which is returned.
    template <class Result>
    Result Ended(Result& result, progress::Outcome outcome, const std::string& summary) const {
        result.outcome = outcome;
        End(outcome, summary);
        return result;
    }

  private:
    ProgressObserver& observer_;
    std::string logName_;
    std::string activity_;
    int base_;
    std::optional<LongRun> run_;
    LocalTime start_;
};

// Runs `run` (which returns an Outcome) when the request's base and source station exist; an
// exception is reported as the program's error, and the run ends as failed.
template <class Outcome, class Run>
Outcome Guarded(int base, int sourceStation, ProgressObserver& observer,
                const std::string& procedure, Run run) {
    Outcome failed;
    failed.outcome = progress::Outcome::Failed;
    if (base < 0 || base >= static_cast<int>(Site().bases.size()) || sourceStation < 1 ||
        sourceStation > Site().bases[static_cast<size_t>(base)].stationCount) {
        GestionDesErreurs(9, "Subscript out of range", procedure);
        return failed;
    }
    try {
        return run();
    } catch (const std::exception& e) {
        GestionDesErreurs(e, procedure);
    }
    observer.OnProgress(progress::Ended{AppClock().Now(), 0, progress::Outcome::Failed, ""});
    return failed;
}

}  // namespace toverin::duplication
