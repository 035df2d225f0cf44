#pragma once

#include <stillora/Types.h>

#include <optional>
#include <string>
#include <string_view>

namespace stillora::window {

/// "1:02", "0:07.25" or "1:00:05": as many digits of the second as it needs, at most hundredths.
std::string textOfTime(Seconds time);

/// What a person typed for a time: "1:02.5", "62.5", with a comma too. Nothing for what is no time.
std::optional<Seconds> timeOfText(std::string_view text);

/// What a person typed for a number of at least 0, with a point or a comma. Nothing for what is none, or is written in
/// a way that people do not: "inf", "nan", "1e9".
std::optional<double> numberOfText(std::string_view text);

} // namespace stillora::window
