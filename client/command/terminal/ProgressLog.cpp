#include "client/command/terminal/ProgressLog.h"

#include "client/text/Text.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

constexpr std::chrono::seconds kLongestSilence{10};

/// "Rendering the photos: 40%, 16/40, 0:12 left"
std::string lineOf(const ProgressLineContent& content)
{
    std::string details;
    const auto add = [&](const std::string& text) {
        if (!text.empty())
            details += (details.empty() ? ": " : ", ") + text;
    };
    if (content.fraction)
        add(fmt::format("{:.0f}%", std::floor(std::clamp(*content.fraction, 0.0, 1.0) * 100)));
    add(content.count);
    add(content.timeLeft);
    return printable(content.title + details);
}

} // namespace

std::optional<std::string> ProgressLog::lineFor(const ProgressLineContent& content, Clock::time_point now)
{
    const bool isNewStage = content.title != title_;
    const int tenths = static_cast<int>(std::floor(std::clamp(content.fraction.value_or(0), 0.0, 1.0) * 10));
    if (content.title.empty() || (!isNewStage && tenths <= tenths_ && now - last_ < kLongestSilence))
        return std::nullopt;
    title_ = content.title;
    tenths_ = tenths;
    last_ = now;
    return lineOf(content);
}

} // namespace stillora
