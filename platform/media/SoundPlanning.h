#pragma once

#include "platform/foundation/NSError.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVMutableAudioMix.h"
#include "platform/media/CMTime.h"
#include "platform/sound/SoundPlan.h"

#include <cstdint>
#include <optional>

namespace platform {

/// Samples of a time; times beyond 64 bits are the farthest there are, and what is no time is 0.
int64_t inSamples(CMTime time, int sampleRateHz,
                  CMTimeRoundingMethod rounding = CMTimeRoundingMethod::RoundHalfAwayFromZero);

/// What the asset knows of a track's sound; null where it does not know it all, or where the file is no longer the one
/// that was looked at.
SoundFactsPtr currentSoundFacts(const AVAssetTrack& track);

/// Lays out the sound of an asset: a file's first sound track, or all of a composition's.
///
/// @param timeRange  nothing for all; clipped to what there is
/// @return nothing if there is no sound, or none in the range; `error` tells which
[[nodiscard]] std::optional<SoundPlan> planSound(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange,
                                                 const AVMutableAudioMix* audioMix, NSError* error = nullptr);

} // namespace platform
