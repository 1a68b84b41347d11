// Time as the program sees it: local wall time, the machine's 32-bit millisecond tick and a
// blocking sleep, all behind one injectable clock so that plans, waits and retries are testable
// without sleeping.
#pragma once

#include <chrono>
#include <cstdint>

namespace toverin {

using Milliseconds = std::chrono::milliseconds;
using LocalTime = std::chrono::local_time<Milliseconds>;

class Clock {
  public:
    virtual ~Clock() = default;
    virtual LocalTime Now() const = 0;
    // Milliseconds since the machine started, as a 32-bit counter that wraps every 49.7 days.
    virtual uint32_t TickCount32() const = 0;
    virtual void Sleep(Milliseconds duration) = 0;
    virtual int64_t UptimeSeconds() const = 0;
};

class SystemClock final : public Clock {
  public:
    LocalTime Now() const override;
    uint32_t TickCount32() const override;
    void Sleep(Milliseconds duration) override;
    int64_t UptimeSeconds() const override;
};

// A clock that moves only when told to. Each tick reading may advance the tick and the wall time
// by `autoAdvance`, so busy waits written against the tick end in tests too.
class FakeClock final : public Clock {
  public:
    explicit FakeClock(LocalTime start, uint32_t tick = 1000);
    LocalTime Now() const override { return now_; }
    uint32_t TickCount32() const override;
    void Sleep(Milliseconds duration) override { Advance(duration); }
    int64_t UptimeSeconds() const override { return uptimeSeconds_; }

    void Advance(Milliseconds duration);
    void Set(LocalTime now) { now_ = now; }
    void SetTick(uint32_t tick) { tick_ = tick; }
    void SetAutoAdvance(Milliseconds step) { autoAdvance_ = step; }
    void SetUptimeSeconds(int64_t seconds) { uptimeSeconds_ = seconds; }
    Milliseconds TotalSlept() const { return slept_; }

  private:
    LocalTime now_;
    mutable uint32_t tick_;
    Milliseconds autoAdvance_{0};
    Milliseconds slept_{0};
    int64_t uptimeSeconds_ = 3600;
    friend class FakeClockAccess;
};

// The machine's local time of an instant (a file's date, the system clock).
LocalTime LocalTimeOf(std::chrono::system_clock::time_point instant);

// The clock every part of the program reads. Tests install their own; nullptr restores the system
// clock.
Clock& AppClock();
void SetAppClock(Clock* clock);

// Wrap-safe 64-bit milliseconds built from the 32-bit tick: a reading smaller than the previous
// one means the counter wrapped, and 2^32 is added to the running offset.
uint64_t GetTickCount64();
void ResetTickCount64();

// Busy wait with the event pump until more than `ms` milliseconds have elapsed.
void WaitOnDuration(int32_t ms);

}  // namespace toverin
