#pragma once

#include "platform/media/AVAsset.h"

#include <memory>
#include <string>
#include <vector>

namespace platform {

/// A stretch of a composition's track: a range of an asset's track, or nothing.
struct AVCompositionTrackSegment {
    /// Where it is read from; none for an empty stretch.
    std::optional<AVAssetTrack> source;
    CMTimeRange sourceRange;
    /// Of the same duration, on the composition's time line.
    CMTimeRange targetRange;
};

/// One track of a composition. One thread at a time.
class AVMutableCompositionTrack final {
public:
    AVMutableCompositionTrack(int32_t trackID, std::string mediaType);

    int32_t trackID() const { return trackID_; }
    const std::string& mediaType() const { return mediaType_; }
    const std::vector<AVCompositionTrackSegment>& segments() const { return segments_; }
    /// Where the last segment ends; zero for an empty track.
    CMTime end() const;
    /// The track as one of an asset.
    AVAssetTrack asAssetTrack() const;

    /// Puts a part of an asset's track at a time; what lies there and later moves back, and what lies before an
    /// insertion beyond the end is empty. The range is clipped to the track's media.
    ///
    /// @return false if the track is none, of another kind, or nothing of it lies in the range; nothing is then changed
    [[nodiscard]] bool insertTimeRange(CMTimeRange timeRange, const std::optional<AVAssetTrack>& ofTrack, CMTime atTime,
                                       NSError* error = nullptr);

private:
    const int32_t trackID_;
    const std::string mediaType_;
    std::vector<AVCompositionTrackSegment> segments_;
};

/// An asset put together from ranges of others. One thread at a time while it is made; any once it is not changed.
class AVMutableComposition final : public AVAsset {
public:
    static constexpr int32_t kTrackIDInvalid = 0;

    static std::shared_ptr<AVMutableComposition> composition() { return std::make_shared<AVMutableComposition>(); }

    /// A new empty track; an identifier of 0 lets the composition choose one. Lives as long as the composition.
    AVMutableCompositionTrack& addMutableTrackWithMediaType(std::string_view mediaType, int32_t preferredTrackID);

    /// The largest end of any track.
    CMTime duration() const override;
    std::vector<AVAssetTrack> tracks() const override;
    const std::vector<std::unique_ptr<AVMutableCompositionTrack>>& compositionTracks() const { return tracks_; }

private:
    std::vector<std::unique_ptr<AVMutableCompositionTrack>> tracks_;
};

} // namespace platform
