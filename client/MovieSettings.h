#pragma once

#include <stillora/Movie.h>

#include "platform/propertylists/NSPropertyListSerialization.h"

#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// Reads saved settings; what is missing, or cannot be used, is as in new settings.
///
/// @param faults  one sentence is added for each value that cannot be used
MovieSettings readMovieSettings(const platform::PropertyList::Dictionary& saved, std::vector<std::string>& faults);

/// Puts the values that differ from the earlier ones into saved settings, or all without earlier ones. What else is
/// there stays, known here or not.
void writeMovieSettings(const std::optional<MovieSettings>& before, const MovieSettings& after,
                        platform::PropertyList::Dictionary& saved);

} // namespace stillora
