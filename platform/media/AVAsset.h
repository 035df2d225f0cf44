#pragma once

#include "platform/foundation/NSURL.h"
#include "platform/media/AVMetadataItem.h"
#include "platform/media/CMTime.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

inline constexpr std::string_view kAVMediaTypeVideo = "vide";
inline constexpr std::string_view kAVMediaTypeAudio = "soun";

/// One track of a media file or composition.
struct AVAssetTrack {
    int32_t trackID = 0;
    /// "vide" or "soun".
    std::string mediaType;
    /// What of the track plays on the asset's time line; encoder delay and padding are counted out. The scale is the
    /// track's own: the sample rate for sound.
    CMTimeRange timeRange;
    /// Index of the stream within the file.
    int streamIndex = 0;
    /// The file that the track is read from; none for a composition's track.
    std::optional<NSURL> assetURL;
};

/// Media of a length, in tracks. Shared by those who use it.
class AVAsset {
public:
    virtual ~AVAsset() = default;

    virtual CMTime duration() const = 0;
    virtual std::vector<AVAssetTrack> tracks() const = 0;

    /// Those entries of the tags that stand for a common key, in their order; each keeps its own key and key space.
    virtual AVMetadataItemList commonMetadata() const { return {}; }

    /// In order of the tracks.
    std::vector<AVAssetTrack> tracksWithMediaType(std::string_view mediaType) const;
    /// The first track from which a range can be inserted into a composition's track of this media type.
    std::optional<AVAssetTrack> compatibleTrackForCompositionTrack(const AVAssetTrack& compositionTrack) const;
};

using AVAssetPtr = std::shared_ptr<AVAsset>;

} // namespace platform
