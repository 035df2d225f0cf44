#pragma once

#include "audio/MORAudioWaveImage.h"

#include <optional>

/// The steps of drawing a wave form; callers start at MORAudioWaveImage.h.
namespace MORAudioWaveImage {

/// Reads the range of the track on the global queue and draws it. Without a track, or once its asset is gone, there is
/// neither image nor error.
void _createWaveFormImageFromAssetTrack(const std::optional<platform::AVAssetTrack>& track,
                                        platform::CMTimeRange withSampleRange, platform::CGSize imageSize,
                                        WaveFormHandler completionHandler);

/// A centre line.
platform::NSImagePtr _emptyImageInCaseOfErrorWithSize(platform::CGSize size);

/// Answers on the main queue that there is no image.
void _asynchronousLoadOfWaveFormFailedWithError(std::optional<platform::NSError> error,
                                                WaveFormHandler forCompletionHandler);

} // namespace MORAudioWaveImage
