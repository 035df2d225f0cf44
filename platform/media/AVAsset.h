#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/media/AVMetadataItem.h"
#include "platform/media/CMFormatDescription.h"
#include "platform/media/CMTime.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

inline constexpr std::string_view kAVMediaTypeVideo = "vide";
inline constexpr std::string_view kAVMediaTypeAudio = "soun";

class AVAsset;
struct SoundFacts;

/// Whether a value of an asset can be asked for without waiting.
enum class AVKeyValueStatus : int { Unknown = 0, Loading = 1, Loaded = 2, Failed = 3, Cancelled = 4 };

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
    /// The asset that the track is of; empty once that is gone, and where nobody shares it.
    std::weak_ptr<const AVAsset> asset;
    /// One for each kind of media that the track holds.
    std::vector<CMFormatDescription> formatDescriptions;
    /// How it is stored, by FFmpeg's short name: "mp3", "aac", "pcm_s16le", "h264".
    std::string codec;
    /// Pixels of pictures as they are shown, upright; zero for sound.
    CGSize naturalSize;
    /// All that is known of a sound, where the file was measured and not estimated.
    std::shared_ptr<const SoundFacts> sound;
};

/// Media of a length, in tracks. Shared by those who use it.
class AVAsset : public std::enable_shared_from_this<AVAsset> {
public:
    virtual ~AVAsset() = default;

    virtual CMTime duration() const = 0;
    virtual std::vector<AVAssetTrack> tracks() const = 0;

    /// Those entries of the tags that stand for a common key, in their order; each keeps its own key and key space.
    virtual AVMetadataItemList commonMetadata() const { return {}; }

    /// Finds out the values of the keys, "duration" and "tracks", on the global queue, where `completionHandler` is
    /// then called, also if that failed. The asset must be shared, and lives until then.
    void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                         std::move_only_function<void()> completionHandler);
    /// Unknown for keys that are none.
    /// @param error  out, optional: why the value could not be loaded
    [[nodiscard]] virtual AVKeyValueStatus statusOfValueForKey(std::string_view key, NSError* error = nullptr) const;

    /// In order of the tracks.
    std::vector<AVAssetTrack> tracksWithMediaType(std::string_view mediaType) const;
    /// The first track from which a range can be inserted into a composition's track of this media type.
    std::optional<AVAssetTrack> compatibleTrackForCompositionTrack(const AVAssetTrack& compositionTrack) const;

protected:
    /// Waits until the values are known. Those of an asset in memory always are.
    virtual void loadValues() const {}
};

using AVAssetPtr = std::shared_ptr<AVAsset>;

} // namespace platform
