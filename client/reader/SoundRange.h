#pragma once

#include <stillora/Sounds.h>

#include "platform/media/CMTime.h"

#include <optional>

namespace stillora {

/// The part of a sound that the user wants: from the nearest sample on, as many as fit into the part, but one at least.
/// @return zero, which stands for all of it, if no part was chosen
platform::CMTimeRange timeRangeOf(const std::optional<SoundFacts::Selection>& selection, int sampleRateHz);

} // namespace stillora
