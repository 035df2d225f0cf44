#pragma once

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
    /// Begins work for the question that the calling thread is asked, on a thread that gets so much time as well.
    static std::jthread beginAside(std::chrono::milliseconds most, std::function<void()> work);

    /// @param most  zero is without limit
    explicit WorkLimit(std::chrono::milliseconds most);
    ~WorkLimit();
    WorkLimit(const WorkLimit&) = delete;
    WorkLimit& operator=(const WorkLimit&) = delete;

private:
    timer_t timer_{};
    bool isSet_ = false;
};

} // namespace stillora
