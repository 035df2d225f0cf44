#pragma once

#include <optional>
#include <string>

namespace stillora {

/// What a progress line shows.
struct ProgressLineContent {
    /// The stage, in the user's language.
    std::string title;
    /// From 0 to 1; nothing where the stage cannot tell.
    std::optional<double> fraction;
    /// "12/40"; may be empty.
    std::string count;
    /// May be empty.
    std::string timeLeft;
    /// Turns of the bar of a stage that cannot tell how far it is; any number.
    double turns = 0;
};

/// Of which the bar and the mark of what was cut off are made.
enum class LineCharacters { UTF8, ASCII };

/// The line for a terminal of so many columns, without control characters. It leaves the last columns free. What does
/// not fit is left out in this order: the bar's length, the count, the time, the bar, the end of the title; the
/// percentage stays to the last.
std::string progressLine(const ProgressLineContent& content, int columns, LineCharacters characters);

} // namespace stillora
