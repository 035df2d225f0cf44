#pragma once

#include <stillora/Movie.h>

#include <string>

namespace stillora {

/// Tells for people what a movie would be: its length, its height and why it has that, what is heard, and its photos in
/// their order, each on a line of its own.
std::string planText(const MovieRequest& request);

} // namespace stillora
