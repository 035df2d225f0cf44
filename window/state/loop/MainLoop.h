#pragma once

#include <chrono>
#include <functional>

namespace stillora::window {

/// The loop of the thread on which all of the window's state lives. Whoever has a loop implements this; it outlives
/// what uses it.
class MainLoop {
public:
    virtual ~MainLoop() = default;

    /// Has a function called on the loop's thread, after those that were posted before. Any thread.
    virtual void post(std::function<void()> call) = 0;

    /// Has a function called on the loop's thread once so much time has passed. Any thread.
    virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> call) = 0;
};

} // namespace stillora::window
