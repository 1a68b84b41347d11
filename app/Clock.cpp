#include "app/Clock.h"

#include <ctime>
#include <fstream>
#include <thread>

#include "app/EventPump.h"

namespace toverin {
namespace {

SystemClock gSystemClock;
Clock* gClock = &gSystemClock;

struct TickState {
    uint64_t last = 0;
    uint64_t wrapOffset = 0;
    bool started = false;
};
TickState gTick;

}  // namespace

LocalTime LocalTimeOf(std::chrono::system_clock::time_point instant) {
    using namespace std::chrono;
    std::time_t t = system_clock::to_time_t(instant);
    std::tm tm{};
    localtime_r(&t, &tm);
    auto ms = duration_cast<milliseconds>(instant.time_since_epoch()) % 1000;
    if (ms.count() < 0) ms += seconds(1);
    auto days = local_days{year{tm.tm_year + 1900} / (tm.tm_mon + 1) / tm.tm_mday};
    return LocalTime{days} + hours{tm.tm_hour} + minutes{tm.tm_min} + seconds{tm.tm_sec} + ms;
}

LocalTime SystemClock::Now() const {
    return LocalTimeOf(std::chrono::system_clock::now());
}

uint32_t SystemClock::TickCount32() const {
    using namespace std::chrono;
    auto ms = duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    return static_cast<uint32_t>(ms);
}

void SystemClock::Sleep(Milliseconds duration) {
    std::this_thread::sleep_for(duration);
}

int64_t SystemClock::UptimeSeconds() const {
    std::ifstream in("/proc/uptime");
    double seconds = 0;
    if (in >> seconds) return static_cast<int64_t>(seconds);
    timespec ts{};
    clock_gettime(CLOCK_BOOTTIME, &ts);
    return ts.tv_sec;
}

FakeClock::FakeClock(LocalTime start, uint32_t tick) : now_(start), tick_(tick) {}

uint32_t FakeClock::TickCount32() const {
    uint32_t reading = tick_;
    if (autoAdvance_.count() > 0) {
        tick_ += static_cast<uint32_t>(autoAdvance_.count());
        const_cast<FakeClock*>(this)->now_ += autoAdvance_;
    }
    return reading;
}

void FakeClock::Advance(Milliseconds duration) {
    now_ += duration;
    tick_ += static_cast<uint32_t>(duration.count());
    slept_ += duration;
}

Clock& AppClock() {
    return *gClock;
}

void SetAppClock(Clock* clock) {
    gClock = clock ? clock : &gSystemClock;
    ResetTickCount64();
}

uint64_t GetTickCount64() {
    uint64_t reading = AppClock().TickCount32();  // read as unsigned
    if (gTick.started && reading < gTick.last) gTick.wrapOffset += (uint64_t{1} << 32);
    gTick.last = reading;
    gTick.started = true;
    return gTick.wrapOffset + reading;
}

void ResetTickCount64() {
    gTick = TickState{};
}

void WaitOnDuration(int32_t ms) {
    uint64_t start = GetTickCount64();
    while (!TerminationRequested()) {
        DoEvents();
        uint64_t now = GetTickCount64();
        uint64_t elapsed = now > start ? now - start : start - now;
        if (elapsed > static_cast<uint64_t>(ms < 0 ? 0 : ms)) break;
    }
}

}  // namespace toverin
