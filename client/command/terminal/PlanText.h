#pragma once

#include <stillora/Movie.h>

#include "client/forecast/MovieForecast.h"

#include <optional>
#include <string>

namespace stillora {

/// Tells for people what a movie would be: its length, its height and why it has that, what is heard, what it will
/// take where that is known, and its photos in their order, each on a line of its own.
std::string planText(const MovieRequest& request, const std::optional<MovieForecast>& forecast = std::nullopt);

} // namespace stillora
