#include "client/command/terminal/Swatch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include <fmt/format.h>
#include <unistd.h>

namespace stillora {

namespace {

using Levels = std::array<int, 3>;

Levels levelsOf(const Color& color)
{
    const auto level = [](double component) {
        return static_cast<int>(std::lround(std::clamp(component, 0.0, 1.0) * 255));
    };
    return {level(color.red), level(color.green), level(color.blue)};
}

int distance(const Levels& one, const Levels& other)
{
    int sum = 0;
    for (size_t i = 0; i < one.size(); ++i)
        sum += (one[i] - other[i]) * (one[i] - other[i]);
    return sum;
}

/// Of the palette that all terminals of 256 colours share: a cube of 6 x 6 x 6 colours, then 24 greys.
int nearestOf256(const Levels& color)
{
    constexpr int kCubeBegin = 16;
    constexpr int kGreysBegin = 232;
    constexpr int kGreys = 24;
    constexpr std::array<int, 6> kSteps = {0, 95, 135, 175, 215, 255};
    Levels nearest{};
    int index = 0;
    for (size_t i = 0; i < color.size(); ++i) {
        const auto step = std::min_element(kSteps.begin(), kSteps.end(), [&](int one, int other) {
            return std::abs(one - color[i]) < std::abs(other - color[i]);
        });
        nearest[i] = *step;
        index = index * 6 + static_cast<int>(step - kSteps.begin());
    }
    index += kCubeBegin;
    for (int i = 0; i < kGreys; ++i) {
        const int level = 8 + 10 * i;
        const Levels grey = {level, level, level};
        if (distance(grey, color) < distance(nearest, color)) {
            nearest = grey;
            index = kGreysBegin + i;
        }
    }
    return index;
}

std::string_view variable(const char* name)
{
    const char* value = getenv(name);
    return value ? value : "";
}

} // namespace

TerminalColors terminalColors()
{
    const std::string_view kind = variable("TERM");
    // Users who want no colours say so in every program by the last one.
    if (isatty(STDOUT_FILENO) != 1 || kind.empty() || kind == "dumb" || !variable("NO_COLOR").empty())
        return TerminalColors::None;
    const std::string_view colors = variable("COLORTERM");
    if (colors == "truecolor" || colors == "24bit" || kind.ends_with("-direct"))
        return TerminalColors::True;
    return kind.find("256color") != std::string_view::npos ? TerminalColors::Palette256 : TerminalColors::None;
}

std::string hexOf(const Color& color)
{
    const Levels levels = levelsOf(color);
    return fmt::format("#{:02x}{:02x}{:02x}", levels[0], levels[1], levels[2]);
}

std::string swatch(const Color& color, TerminalColors colors)
{
    constexpr std::string_view kBlanks = "      ";
    const Levels levels = levelsOf(color);
    switch (colors) {
    case TerminalColors::True:
        return fmt::format("\x1b[48;2;{};{};{}m{}\x1b[0m", levels[0], levels[1], levels[2], kBlanks);
    case TerminalColors::Palette256:
        return fmt::format("\x1b[48;5;{}m{}\x1b[0m", nearestOf256(levels), kBlanks);
    case TerminalColors::None:
        break;
    }
    return {};
}

} // namespace stillora
