#pragma once

#include "client/questions/Questions.h"
#include "platform/media/CMTime.h"
#include "platform/movie/MediaInspection.h"

#include <string>
#include <vector>

namespace stillora {

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
