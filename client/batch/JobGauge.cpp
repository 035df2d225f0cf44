#include "client/batch/JobGauge.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

namespace stillora {

namespace {

/// With less of the processors' time idle, another movie would only make the others slower.
constexpr double kWorthwhileIdle = 0.15;

/// Of a movie, before one was seen.
constexpr int64_t kUsualPeakBytes = int64_t{512} << 20;

} // namespace

JobGauge::JobGauge(std::optional<int> fixed, int processors)
    : fixed_(fixed), most_(std::max(1, 2 * processors)), allowed_(fixed.value_or(1))
{}

void JobGauge::measured(const Measure& measure, int running)
{
    if (fixed_)
        return;
    const int64_t peak = measure.peakBytes > 0 ? measure.peakBytes : kUsualPeakBytes;
    if (measure.availableBytes > 0 && measure.availableBytes < peak / 2)
        allowed_ = std::max(1, allowed_ - 1);
    else if (running >= allowed_ && measure.idle > kWorthwhileIdle &&
             (measure.availableBytes == 0 || measure.availableBytes > 2 * peak))
        allowed_ = std::min(most_, allowed_ + 1);
}

int JobGauge::processors()
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
}

double IdleTime::share()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return 0;
    std::ifstream lines("/proc/stat");
    return share(lines, set);
}

double IdleTime::share(std::istream& lines, const cpu_set_t& processors)
{
    uint64_t idle = 0;
    uint64_t all = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        size_t number = 0;
        if (!name.starts_with("cpu") ||
            std::from_chars(name.data() + 3, name.data() + name.size(), number).ec != std::errc() ||
            !CPU_ISSET(number, &processors))
            continue;
        // user, nice, system, idle, waiting for disks, and what follows.
        uint64_t ticks = 0;
        for (int i = 0; i < 8 && words >> ticks; ++i) {
            all += ticks;
            idle += i == 3 || i == 4 ? ticks : 0;
        }
    }
    const uint64_t idleBefore = std::exchange(idle_, idle);
    const uint64_t allBefore = std::exchange(all_, all);
    if (allBefore == 0 || all <= allBefore || idle < idleBefore)
        return 0;
    return std::min(1.0, static_cast<double>(idle - idleBefore) / static_cast<double>(all - allBefore));
}

} // namespace stillora
