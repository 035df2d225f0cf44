#pragma once

#include <stillora/Movie.h>

#include "platform/propertylists/NSPropertyListSerialization.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// @name Names of saved settings
/// @{
inline constexpr std::string_view kSecondsPerPhotoKey = "secondsPerPhoto";
inline constexpr std::string_view kQualityKey = "quality";
inline constexpr std::string_view kCodecKey = "codec";
inline constexpr std::string_view kLoopsSoundsKey = "loopsSoundtracks";
inline constexpr std::string_view kFitsMusicKey = "fitsMusic";
inline constexpr std::string_view kFillsSilenceKey = "fillsSilence";
inline constexpr std::string_view kReducesBordersKey = "reducesBorders";
inline constexpr std::string_view kTitleKey = "title";
inline constexpr std::string_view kDrawsWatermarkKey = "drawsWatermark";
/// @}

/// Reads saved settings; what is missing, or cannot be used, is as in new settings.
///
/// @param faults  one sentence is added for each value that cannot be used
MovieSettings readMovieSettings(const platform::PropertyList::Dictionary& saved, std::vector<std::string>& faults);

/// Puts the values that differ from the earlier ones into saved settings, or all without earlier ones. What else is
/// there stays, known here or not.
/// @param rewritten  names of values that are put there even if they are as before
void writeMovieSettings(const std::optional<MovieSettings>& before, const MovieSettings& after,
                        const std::set<std::string, std::less<>>& rewritten, platform::PropertyList::Dictionary& saved);

} // namespace stillora
