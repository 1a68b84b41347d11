// What every benchmark measures with: wall time, processor time, medians, a quiet disk.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace toverin::bench {

using Steady = std::chrono::steady_clock;

inline double Seconds(Steady::time_point start) {
    return std::chrono::duration<double>(Steady::now() - start).count();
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    if (n == 0) return 0;
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Processor time (user + system) of the process so far (RUSAGE_SELF) or of its finished
// children (RUSAGE_CHILDREN): it tells computing from waiting on a loaded machine.
inline double CpuSeconds(int who = RUSAGE_SELF) {
    rusage usage{};
    getrusage(who, &usage);
    auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Writes out whatever the measure before left dirty, untimed, so that each measure starts from
// a quiet disk instead of paying for the writes of the one before (a site just made, the last
// export's file).
inline void QuietDisk() {
    ::sync();
}

}  // namespace toverin::bench
