#pragma once

#include "client/command/terminal/ProgressLine.h"
#include "client/processes/WorkingClock.h"

#include <chrono>
#include <optional>
#include <string>

namespace stillora {

/// Progress as lines that stay, for terminals that cannot draw over a line, for screen readers and for logs: one for
/// each stage, and one for every ten per cent of it or every ten seconds.
class ProgressLog final {
public:
    using Clock = WorkingClock;

    /// The line that is to be written now, without control characters; nothing where there is nothing new to say.
    std::optional<std::string> lineFor(const ProgressLineContent& content, Clock::time_point now);

private:
    std::string title_;
    int tenths_ = 0;
    Clock::time_point last_;
};

} // namespace stillora
