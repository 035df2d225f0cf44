#pragma once

#include "window/state/loop/MainLoop.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace stillora::window {

/// A loop on the thread of the test.
class TestLoop final : public MainLoop {
public:
    void post(std::function<void()> call) override { postAfter(std::chrono::milliseconds(0), std::move(call)); }

    void postAfter(std::chrono::milliseconds delay, std::function<void()> call) override
    {
        const std::lock_guard guard(mutex_);
        calls_.emplace(std::chrono::steady_clock::now() + delay, std::move(call));
        changed_.notify_all();
    }

    /// Runs until a condition holds; it is asked after each call.
    /// @return whether it came to hold in a minute
    bool runUntil(const std::function<bool()>& holds)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!holds())
            if (!runOne(deadline))
                return false;
        return true;
    }

    /// The longest that a call has kept the loop from others.
    std::chrono::duration<double> longestCall() const { return longest_; }

private:
    bool runOne(std::chrono::steady_clock::time_point deadline)
    {
        std::function<void()> call;
        {
            std::unique_lock guard(mutex_);
            for (;;) {
                const auto now = std::chrono::steady_clock::now();
                if (!calls_.empty() && calls_.begin()->first <= now)
                    break;
                if (now >= deadline)
                    return false;
                const auto until = calls_.empty() ? deadline : std::min(deadline, calls_.begin()->first);
                changed_.wait_until(guard, until);
            }
            call = std::move(calls_.begin()->second);
            calls_.erase(calls_.begin());
        }
        const auto begin = std::chrono::steady_clock::now();
        call();
        longest_ = std::max<std::chrono::duration<double>>(longest_, std::chrono::steady_clock::now() - begin);
        return true;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    /// Those of one moment in the order in which they were posted.
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> calls_;
    std::chrono::duration<double> longest_{0};
};

} // namespace stillora::window
