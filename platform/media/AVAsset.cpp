#include "platform/media/AVAsset.h"

#include "platform/dispatch/DispatchQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace platform {
namespace {

constexpr std::string_view kLoadedKeys[] = {"duration", "tracks"};

bool isLoadedKey(std::string_view key)
{
    return std::find(std::begin(kLoadedKeys), std::end(kLoadedKeys), key) != std::end(kLoadedKeys);
}

} // namespace

void AVAsset::loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                              std::move_only_function<void()> completionHandler)
{
    DispatchQueue::global()->async(
        [self = shared_from_this(), keys = std::move(keys), handler = std::move(completionHandler)]() mutable {
            // One look at the file tells them all.
            if (std::any_of(keys.begin(), keys.end(), isLoadedKey))
                self->loadValues();
            if (handler)
                handler();
        });
}

AVKeyValueStatus AVAsset::statusOfValueForKey(std::string_view key, NSError*) const
{
    return isLoadedKey(key) ? AVKeyValueStatus::Loaded : AVKeyValueStatus::Unknown;
}

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
