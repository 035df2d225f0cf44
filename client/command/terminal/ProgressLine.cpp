#include "client/command/terminal/ProgressLine.h"

#include "client/text/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace stillora {

namespace {

constexpr int kLongestBar = 32;
constexpr int kShortestBar = 8;
constexpr int kShortestTitle = 8;

/// Left free at the end: some terminals wrap in the last column, and the "^C" of an interruption would wrap too, which
/// leaves a piece of the line behind. On the narrowest terminals every column counts.
int freeColumns(int columns)
{
    return columns >= 20 ? 3 : 1;
}

/// Columns of the block that moves in a bar without a fraction.
constexpr int kBlockColumns = 3;

std::string repeated(std::string_view text, int count)
{
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

std::string filledBar(double fraction, int columns, LineCharacters characters)
{
    if (characters == LineCharacters::ASCII) {
        const int filled = static_cast<int>(std::floor(fraction * (columns - 2)));
        return fmt::format("[{}{}]", repeated("#", filled), repeated("-", columns - 2 - filled));
    }
    constexpr std::array<std::string_view, 8> kEighths{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const int eighths = static_cast<int>(std::floor(fraction * columns * 8));
    const std::string_view part = kEighths[static_cast<size_t>(eighths % 8)];
    const int filled = eighths / 8;
    return repeated("█", filled) + std::string(part) + repeated("░", columns - filled - (part.empty() ? 0 : 1));
}

std::string movingBar(double turns, int columns, LineCharacters characters)
{
    const bool isASCII = characters == LineCharacters::ASCII;
    const int room = isASCII ? columns - 2 : columns;
    const int span = std::max(room - kBlockColumns, 1);
    // There and back.
    const double phase = std::fmod(std::abs(turns), 1.0) * 2;
    const int position =
        std::clamp(static_cast<int>(std::lround((phase <= 1 ? phase : 2 - phase) * span)), 0, room - kBlockColumns);
    const std::string bar = repeated(isASCII ? "-" : "░", position) + repeated(isASCII ? "#" : "█", kBlockColumns) +
                            repeated(isASCII ? "-" : "░", room - position - kBlockColumns);
    return isASCII ? fmt::format("[{}]", bar) : bar;
}

std::string barText(const ProgressLineContent& content, int columns, LineCharacters characters)
{
    return content.fraction ? filledBar(std::clamp(*content.fraction, 0.0, 1.0), columns, characters)
                            : movingBar(content.turns, columns, characters);
}

/// The texts joined by two blanks; empty ones do not count.
std::string joined(const std::vector<std::string>& texts)
{
    std::string line;
    for (const std::string& text : texts)
        if (!text.empty())
            line += (line.empty() ? "" : "  ") + text;
    return line;
}

} // namespace

std::string progressLine(const ProgressLineContent& content, int columns, LineCharacters characters)
{
    const int room = columns - freeColumns(columns);
    const std::string_view mark = characters == LineCharacters::UTF8 ? "…" : "...";
    const std::string title = printable(content.title);
    const std::string& timeLeft = content.timeLeft;
    const std::string percent =
        content.fraction ? fmt::format("{:3.0f}%", std::floor(std::clamp(*content.fraction, 0.0, 1.0) * 100)) : "";

    struct Parts {
        std::string count;
        std::string timeLeft;
    };
    for (const Parts& parts : {Parts{content.count, timeLeft}, Parts{"", timeLeft}, Parts{"", ""}}) {
        const std::string rest = joined({percent, parts.count, parts.timeLeft});
        const int bar = room - displayWidth(joined({title, "", rest})) - 2;
        if (bar >= kShortestBar)
            return joined({title, barText(content, std::min(bar, kLongestBar), characters), rest});
    }
    const int titleRoom = room - displayWidth(percent) - (percent.empty() ? 0 : 2);
    if (titleRoom >= kShortestTitle || percent.empty())
        return joined({cutToWidth(title, titleRoom, mark), percent});
    const std::string number = percent.substr(percent.find_first_not_of(' '));
    return displayWidth(number) <= room ? number : std::string();
}

} // namespace stillora
