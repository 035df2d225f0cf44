#include "items/MORSoundtrack.h"

#include "platform/foundation/Lock.h"
#include "platform/foundation/NSCache.h"
#include "platform/media/CMTime.h"

#include <map>

using namespace platform;

// What opens the sound file. Both caches outlive whatever still runs while the process ends.

namespace {

/// Never emptied: a file that is replaced under its path keeps what was measured first.
struct DurationCache {
    Lock lock;
    std::map<std::string, double> seconds GUARDED_BY(lock);
};

// Neither is ever destroyed: lengths may still be asked for while the process ends.
DurationCache& durationCache()
{
    static auto& cache = *new DurationCache;
    return cache;
}

NSCache<std::string, AVURLAssetPtr>& assetCache()
{
    // More than the soundtracks of any one document; an asset may keep a cover of some megabytes.
    constexpr size_t kMaximumAssets = 64;
    static auto& cache = *new NSCache<std::string, AVURLAssetPtr>(kMaximumAssets, 0);
    return cache;
}

} // namespace

double MORSoundtrack::duration() const
{
    const SoundtrackSelection selected = selection();
    if (selected != kNoSelection && selected != SoundtrackSelection{})
        return selected.length;

    const auto path = _originalPath();
    DurationCache& cache = durationCache();
    if (path) {
        const LockGuard guard(cache.lock);
        if (const auto known = cache.seconds.find(*path); known != cache.seconds.end())
            return known->second;
    }
    const auto url = soundtrackURL();
    const double seconds = url ? CMTimeGetSeconds(AVURLAsset::URLAssetWithURL(*url)->duration()) : 0;
    if (path) {
        const LockGuard guard(cache.lock);
        cache.seconds.insert_or_assign(*path, seconds);
    }
    return seconds;
}

AVURLAssetPtr MORSoundtrack::asset() const
{
    const auto url = soundtrackURL();
    if (!url)
        return nullptr;
    const std::string key = url->absoluteString();
    auto asset = assetCache().objectForKey(key);
    if (!asset) {
        asset = std::make_shared<AVURLAsset>(*url, AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
        assetCache().setObject(asset, key);
    }
    return asset;
}
