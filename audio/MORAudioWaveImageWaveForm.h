#pragma once

#include "audio/MORAudioWaveImage.h"

#include <functional>
#include <optional>

/// The steps of drawing a wave form; callers start at MORAudioWaveImage.h.
namespace MORAudioWaveImage {

/// Reads the range of the track on the global queue and draws it. Without a track, or once its asset is gone, there is
/// neither image nor error.
void _createWaveFormImageFromAssetTrack(const std::optional<platform::AVAssetTrack>& track,
                                        platform::CMTimeRange withSampleRange, platform::CGSize imageSize,
                                        WaveFormHandler completionHandler);

/// Draws the range of a track, and blocks meanwhile.
///
/// @param range   invalid or zero means the whole track
/// @param goesOn  asked often; may be empty. Answers whether to go on
/// @return null if the sound cannot be read, or it was not to go on
[[nodiscard]] platform::NSImagePtr drawTrack(const platform::AVAssetPtr& asset, const platform::AVAssetTrack& track,
                                             platform::CMTimeRange range, platform::CGSize imageSize,
                                             const std::function<bool()>& goesOn, platform::NSError* error = nullptr);

/// A centre line.
platform::NSImagePtr _emptyImageInCaseOfErrorWithSize(platform::CGSize size);

/// Answers on the main queue that there is no image.
void _asynchronousLoadOfWaveFormFailedWithError(std::optional<platform::NSError> error,
                                                WaveFormHandler forCompletionHandler);

} // namespace MORAudioWaveImage
