#include "platform/media/AVAsset.h"

#include <algorithm>
#include <iterator>

namespace platform {

std::vector<AVAssetTrack> AVAsset::tracksWithMediaType(std::string_view mediaType) const
{
    const std::vector<AVAssetTrack> all = tracks();
    std::vector<AVAssetTrack> matching;
    std::copy_if(all.begin(), all.end(), std::back_inserter(matching),
                 [&](const AVAssetTrack& track) { return track.mediaType == mediaType; });
    return matching;
}

std::optional<AVAssetTrack> AVAsset::compatibleTrackForCompositionTrack(const AVAssetTrack& compositionTrack) const
{
    const std::vector<AVAssetTrack> matching = tracksWithMediaType(compositionTrack.mediaType);
    if (matching.empty())
        return std::nullopt;
    return matching.front();
}

} // namespace platform
