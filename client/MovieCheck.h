#pragma once

#include "platform/foundation/NSGeometry.h"
#include "platform/movie/MediaInspection.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// What a finished movie has to be.
struct ExpectedMovie {
    size_t frameCount = 0;
    double secondsPerFrame = 0;
    platform::CGSize size;
    /// Four-character code.
    std::string codec;
    /// Seconds at which the sound ends; nothing for a silent movie.
    std::optional<double> soundEnd;
};

/// Compares a movie that was read back with what was asked for: every photo there, each held as long as the others, the
/// last one too, in the right size, with sound to the end.
///
/// @return one sentence for each thing that is off
std::vector<std::string> findFaults(const platform::MediaReport& movie, const ExpectedMovie& expected);

/// Compares a movie whose pictures were repeated with what it was made of: every picture begins and ends when it did,
/// none lasts longer than `longest`, and all else is the same.
///
/// @return one sentence for each thing that is off
std::vector<std::string> findFaultsOfRepetition(const platform::MediaReport& repeated,
                                                const platform::MediaReport& movie, platform::CMTime longest);

} // namespace stillora
