#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace stillora {

/// The time that the program could work: it stands still while the program and its service are stopped (Ctrl-Z), so
/// that a stop is neither silence of the service nor part of what work takes. Any thread, and safe in a signal handler.
class WorkingClock final {
public:
    using duration = std::chrono::steady_clock::duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<std::chrono::steady_clock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept { return std::chrono::steady_clock::now() - duration(stopped().load()); }
    /// The program was stopped for so long.
    static void addStop(duration length) noexcept { stopped() += length.count(); }

private:
    static std::atomic<int64_t>& stopped() noexcept
    {
        static constinit std::atomic<int64_t> length{0};
        return length;
    }
};

} // namespace stillora
