#pragma once

#include "items/MORPhoto.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/AVURLAsset.h"
#include "video/VideoStageContext.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// Time values of the picture track are whole numbers of this scale.
inline constexpr int32_t kPictureTimescale = 10000;
/// Writing starts when so many frames are finished; with fewer photos never.
inline constexpr size_t kFramesBeforeWriting = 5;

/// Makes the picture track of the movie: one frame a photo, frame i from durationPerPhoto * i seconds, no sound. Blocks
/// until the movie is whole; with fewer than five photos for ever, as five frames are waited for. On the job's thread.
///
/// @param photos            in their order in the movie; each object once
/// @param quality           height of the video, or any other number for the size of the smallest photo
/// @param durationPerPhoto  seconds
/// @param desiredCodec      four-character code; nothing means "jpeg"
/// @param error             out, optional: why there is no movie; emptied where the writer failed
/// @param processorCount    that the time left is estimated for; 0 means the machine's
/// @return "videoWithoutSound.mov" in a new folder below the temporary folder; null without an error means cancelled,
///         nothing to do, or that the writer failed (the cancelled flag is then set)
[[nodiscard]] platform::AVURLAssetPtr videoWithPhotos(VideoStageContext& context, const PhotoList& photos,
                                                      int64_t quality, bool reduceBorders, double durationPerPhoto,
                                                      const std::optional<std::string>& desiredCodec,
                                                      platform::NSError* error = nullptr, uint64_t processorCount = 0);

/// Feeds the writers. One for the whole process: movies of several connections are written one after another.
const std::shared_ptr<platform::DispatchQueue>& videoWritingQueue();

/// The time that rendering still takes, from the bytes of the photos already written.
class RemainingTimeEstimate final {
public:
    /// No estimate yet.
    static constexpr double kUnknown = -1;

    RemainingTimeEstimate(uint64_t processorCount, uint64_t photoCount, uint64_t totalFileSize);

    /// Counts the photo at `index` as written, `elapsedSeconds` after writing began.
    /// @return seconds left, or kUnknown while the first frames of the pipeline are written
    double secondsLeftAfter(uint64_t index, int64_t readBytes, double elapsedSeconds);

private:
    const uint64_t processorCount_;
    const uint64_t photoCount_;
    const uint64_t totalFileSize_;
    int64_t bytesRead_ = 0;
    double estimatedTotalSeconds_ = 0;
};
