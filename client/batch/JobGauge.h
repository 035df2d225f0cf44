#pragma once

#include <chrono>
#include <cstdint>
#include <istream>
#include <optional>

#include <sched.h>

namespace stillora {

/// How many movies pay to be made at the same time: one more as long as processors have nothing to do and there is
/// memory for another, one less where memory runs out. One thread.
class JobGauge final {
public:
    /// What the machine did since it was measured last.
    struct Measure {
        /// Of the time of all processors that the program may use, from 0 to 1.
        double idle = 0;
        int64_t availableBytes = 0;
        /// Of the largest movie so far; 0 before the first one.
        int64_t peakBytes = 0;
    };

    /// @param fixed  as many as the user wants; nothing measures
    explicit JobGauge(std::optional<int> fixed, int processors);

    int allowed() const { return allowed_; }
    /// About once a second, where so many are at work.
    void measured(const Measure& measure, int running);

    /// Processors that the program may use.
    static int processors();

private:
    const std::optional<int> fixed_;
    const int most_;
    int allowed_;
};

/// Reads how long processors had nothing to do. One thread.
class IdleTime final {
public:
    /// Since the last call, from 0 to 1; 0 at the first, and where the system does not tell.
    double share();
    /// The same of lines as /proc/stat has them.
    double share(std::istream& lines, const cpu_set_t& processors);

private:
    uint64_t idle_ = 0;
    uint64_t all_ = 0;
};

} // namespace stillora
