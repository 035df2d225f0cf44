#pragma once

#include "client/MoviePlan.h"
#include "platform/foundation/NSPropertyListSerialization.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// The service's names of the codecs that a movie can have.
inline constexpr std::array<std::string_view, 9> kMovieCodecs{"avc1", "hvc1", "jpeg", "apcn", "ap4h",
                                                              "apch", "apcs", "apco", "ap4x"};

/// How a movie is to be made of its photos and sounds, as a document keeps it.
struct MovieSettings {
    double secondsPerPhoto = kDefaultSecondsPerPhoto;
    /// A height of the service's size table; any other value chooses by the smallest photo.
    int64_t quality = 0;
    /// One of `kMovieCodecs`.
    std::string codec = "avc1";
    bool loopsSounds = false;
    bool fitsMusic = false;
    bool fillsSilence = true;
    bool reducesBorders = false;
    /// Without a fault (`faultOfTitle`); nothing takes the document's name.
    std::optional<std::string> title;

    friend bool operator==(const MovieSettings&, const MovieSettings&) = default;
};

/// Reads saved settings; what is missing, or cannot be used, is as in new settings.
///
/// @param faults  one sentence is added for each value that cannot be used
MovieSettings readMovieSettings(const platform::PropertyList::Dictionary& saved, std::vector<std::string>& faults);

/// Puts the values that differ from the earlier ones into saved settings, or all without earlier ones. What else is
/// there stays, known here or not.
void writeMovieSettings(const std::optional<MovieSettings>& before, const MovieSettings& after,
                        platform::PropertyList::Dictionary& saved);

} // namespace stillora
