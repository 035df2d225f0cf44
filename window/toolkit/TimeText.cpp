#include "window/toolkit/TimeText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace stillora::window {

namespace {

constexpr std::int64_t kHundredths = 100;
constexpr int kMostParts = 3;
/// Longer than any file, and short enough to be reckoned with.
constexpr double kMostSeconds = 1e7;

std::optional<double> number(std::string_view text, bool isWhole)
{
    const std::string_view allowed = isWhole ? "0123456789" : "0123456789.";
    double value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || text.find_first_not_of(allowed) != text.npos || fault != std::errc() ||
        end != text.data() + text.size())
        return std::nullopt;
    return value;
}

/// Without the blanks, and with a point.
std::string plain(std::string_view typed)
{
    std::string text(typed);
    std::erase(text, ' ');
    std::replace(text.begin(), text.end(), ',', '.');
    return text;
}

} // namespace

std::string textOfTime(Seconds time)
{
    const auto all = static_cast<std::int64_t>(std::llround(std::max(0.0, time.count()) * kHundredths));
    const std::int64_t seconds = all / kHundredths;
    std::string text = seconds < 3600 ? fmt::format("{}:{:02}", seconds / 60, seconds % 60)
                                      : fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
    if (const std::int64_t rest = all % kHundredths; rest % 10)
        text += fmt::format(".{:02}", rest);
    else if (rest)
        text += fmt::format(".{}", rest / 10);
    return text;
}

std::optional<double> numberOfText(std::string_view typed)
{
    return number(plain(typed), false);
}

std::optional<Seconds> timeOfText(std::string_view typed)
{
    const std::string text = plain(typed);
    double seconds = 0;
    std::string_view rest = text;
    for (int part = 0; part < kMostParts; ++part) {
        const std::size_t colon = rest.find(':');
        const auto value = number(rest.substr(0, colon), colon != rest.npos);
        if (!value || (part > 0 && *value >= 60))
            return std::nullopt;
        seconds = seconds * 60 + *value;
        if (seconds > kMostSeconds)
            return std::nullopt;
        if (colon == rest.npos)
            return Seconds(seconds);
        rest.remove_prefix(colon + 1);
    }
    return std::nullopt;
}

} // namespace stillora::window
