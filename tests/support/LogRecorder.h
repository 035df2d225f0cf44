#pragma once

#include "platform/foundation/NSLog.h"

#include <mutex>
#include <string>
#include <vector>

/// Keeps the lines that are logged while it lives instead of letting them out.
class LogRecorder final {
public:
    LogRecorder()
    {
        platform::setLogSink([this](const std::string& line) {
            const std::lock_guard guard(mutex_);
            lines_.push_back(line);
        });
    }
    ~LogRecorder() { platform::setLogSink({}); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<std::string> lines() const
    {
        const std::lock_guard guard(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};
