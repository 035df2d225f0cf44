#pragma once

#include "platform/foundation/Lock.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

/// What happened, in order, on whichever threads; may be waited for.
class Journal final {
public:
    void add(std::string entry)
    {
        const platform::LockGuard guard(lock_);
        entries_.push_back(std::move(entry));
        changed_.notify_all();
    }
    std::vector<std::string> entries() const
    {
        const platform::LockGuard guard(lock_);
        return entries_;
    }
    bool contains(const std::string& entry) const { return std::ranges::count(entries(), entry) > 0; }
    void clear()
    {
        const platform::LockGuard guard(lock_);
        entries_.clear();
    }
    /// @return false if there were fewer at the deadline
    bool waitFor(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(30))
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        const platform::LockGuard guard(lock_);
        while (entries_.size() < count) {
            if (changed_.wait_until(lock_, deadline) == std::cv_status::timeout)
                return entries_.size() >= count;
        }
        return true;
    }

private:
    mutable platform::Lock lock_;
    platform::Condition changed_;
    std::vector<std::string> entries_ GUARDED_BY(lock_);
};
