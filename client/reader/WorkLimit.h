#pragma once

#include "platform/foundation/Lock.h"

#include <chrono>
#include <ctime>
#include <functional>
#include <thread>

namespace stillora {

/// While it lives, the thread that made it gets so much of the processor's time. Then the other side of its channel is
/// told, and the process ends: what a decoder holds at that moment cannot be undone. Of several the first one counts.
class WorkLimit final {
public:
    /// Called once, before other threads run.
    static void setUp();
    /// Where the calling thread is asked.
    static void setChannelOfThread(int channel);
    /// @param most  zero is without limit
    explicit WorkLimit(std::chrono::milliseconds most);
    ~WorkLimit();
    WorkLimit(const WorkLimit&) = delete;
    WorkLimit& operator=(const WorkLimit&) = delete;

    /// Begins one of so many equal parts of the work, on a thread of its own, which ends before this limit does. It
    /// gets its share of the time; what it has used when it ends is gone from that of the thread that made the limit.
    /// @throw std::system_error  there is no thread to be had
    std::jthread beginPart(unsigned parts, std::function<void()> work);

private:
    /// @param told  the limit that the other side is told
    WorkLimit(std::chrono::nanoseconds most, std::chrono::milliseconds told);
    void takeAway(std::chrono::nanoseconds used) EXCLUDES(lock_);

    std::chrono::milliseconds most_;
    platform::Lock lock_;
    timer_t timer_{};
    bool isSet_ = false;
};

} // namespace stillora
