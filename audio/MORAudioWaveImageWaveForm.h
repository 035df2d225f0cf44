#pragma once

#include "audio/MORAudioWaveImage.h"

#include <functional>
#include <optional>
#include <thread>

/// The steps of drawing a wave form; callers start at MORAudioWaveImage.h.
namespace MORAudioWaveImage {

/// Reads the range of the track on the global queue and draws it. Without a track, or once its asset is gone, there is
/// neither image nor error.
void _createWaveFormImageFromAssetTrack(const std::optional<platform::AVAssetTrack>& track,
                                        platform::CMTimeRange withSampleRange, platform::CGSize imageSize,
                                        WaveFormHandler completionHandler);

/// Threads that a drawing may use, for which its own waits.
struct WaveFormThreads {
    unsigned most = 1;
    /// Begins one of so many equal parts of the work on a thread of its own; throws std::system_error where there is
    /// none to be had.
    std::function<std::jthread(unsigned parts, std::function<void()> work)> begin;
};

/// Draws the range of a track, and blocks meanwhile. A long sound is read in stretches side by side, if its decoder
/// gives the same samples wherever it starts: the picture is the same for any number of threads.
///
/// @param range  invalid or zero means the whole track
/// @return null if the sound cannot be read
[[nodiscard]] platform::NSImagePtr drawTrack(const platform::AVAssetPtr& asset, const platform::AVAssetTrack& track,
                                             platform::CMTimeRange range, platform::CGSize imageSize,
                                             const WaveFormThreads& threads, platform::NSError* error = nullptr);

/// A centre line.
platform::NSImagePtr _emptyImageInCaseOfErrorWithSize(platform::CGSize size);

/// Answers on the main queue that there is no image.
void _asynchronousLoadOfWaveFormFailedWithError(std::optional<platform::NSError> error,
                                                WaveFormHandler forCompletionHandler);

} // namespace MORAudioWaveImage
