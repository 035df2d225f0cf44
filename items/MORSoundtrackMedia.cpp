#include "items/MORSoundtrack.h"

#include "platform/media/CMTime.h"

#include <map>
#include <mutex>

using namespace platform;

// What opens the sound file. Both caches outlive whatever still runs while the process ends and are never emptied: a
// file that is replaced under its path keeps what was measured first.

namespace {

template <typename Value>
struct Cache {
    std::mutex mutex;
    std::map<std::string, Value> values;
};

Cache<double>& durationCache()
{
    static auto& cache = *new Cache<double>;
    return cache;
}

Cache<AVURLAssetPtr>& assetCache()
{
    static auto& cache = *new Cache<AVURLAssetPtr>;
    return cache;
}

} // namespace

double MORSoundtrack::duration() const
{
    const SoundtrackSelection selected = selection();
    if (selected != kNoSelection && selected != SoundtrackSelection{})
        return selected.length;

    const auto path = _originalPath();
    Cache<double>& cache = durationCache();
    if (path) {
        const std::lock_guard lock(cache.mutex);
        if (const auto known = cache.values.find(*path); known != cache.values.end())
            return known->second;
    }
    const auto url = soundtrackURL();
    const double seconds = url ? CMTimeGetSeconds(AVURLAsset::URLAssetWithURL(*url)->duration()) : 0;
    if (path) {
        const std::lock_guard lock(cache.mutex);
        cache.values.insert_or_assign(*path, seconds);
    }
    return seconds;
}

AVURLAssetPtr MORSoundtrack::asset() const
{
    const auto url = soundtrackURL();
    if (!url)
        return nullptr;
    Cache<AVURLAssetPtr>& cache = assetCache();
    const std::lock_guard lock(cache.mutex);
    AVURLAssetPtr& asset = cache.values[url->absoluteString()];
    if (!asset)
        asset = std::make_shared<AVURLAsset>(*url, AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    return asset;
}
