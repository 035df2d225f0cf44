#pragma once

#include <stillora/Sounds.h>

#include "platform/media/CMTime.h"

namespace stillora {

/// The part of a sound that the user wants, to the nearest sample.
/// @return zero, which stands for all of it, if no part was chosen
platform::CMTimeRange timeRangeOf(const SoundFacts& sound);

} // namespace stillora
