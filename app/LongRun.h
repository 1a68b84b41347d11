// One long operation at a time. A backup, restore, creation, duplication or import holds a
// LongRun for as long as it works: the scheduler's ticks find the program busy and return, and
// a second start, from any base's page or tab, is refused with a message naming the run under
// way (two runs would interleave on the single interface thread).
#pragma once

#include <string>

namespace toverin {

class LongRun {
  public:
    // Tries to start `activity`, a French text naming the run ("Backup de la base Base 01").
    // When another run holds the program, nothing is started: ok() is false and Refusal() says
    // why; the caller shows it (or logs it when unattended) and returns.
    explicit LongRun(std::string activity);
    ~LongRun();
    LongRun(const LongRun&) = delete;
    LongRun& operator=(const LongRun&) = delete;

    bool ok() const { return held_; }
    // The message for a refused start: "" when this run started.
    std::string Refusal() const;

  private:
    bool held_ = false;
    std::string refusedBy_;
};

// A run holds the program (the scheduler's busy flag).
bool LongRunUnderWay();
// What the run under way is doing; "" when none.
const std::string& LongRunActivity();

}  // namespace toverin
