#pragma once

#include "platform/foundation/NSLog.h"
#include "tests/support/Journal.h"

#include <algorithm>
#include <string>
#include <vector>

/// Keeps the lines that are logged while it lives instead of letting them out.
class LogRecorder final {
public:
    LogRecorder()
    {
        platform::setLogSink([this](const std::string& line) { journal_.add(line); });
    }
    ~LogRecorder() { platform::setLogSink({}); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<std::string> lines() const { return journal_.entries(); }
    /// Whether a line has the text in it.
    bool contains(const std::string& text) const
    {
        return std::ranges::any_of(lines(), [&](const auto& line) { return line.find(text) != std::string::npos; });
    }
    void clear() { journal_.clear(); }

private:
    Journal journal_;
};
