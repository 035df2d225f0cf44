#include "platform/pixels/PixelRecycling.h"

#include "platform/foundation/Lock.h"

#include <memory>
#include <utility>

namespace platform {

namespace {

// Small ones cost nothing to make, large ones are rare; a few threads decode at a time.
constexpr size_t kLeastBytes = size_t{256} << 10;
constexpr size_t kMostBytes = size_t{40} << 20;
constexpr size_t kMostKept = 2;

Lock keptLock;
std::vector<std::vector<uint8_t>> kept GUARDED_BY(keptLock);

} // namespace

std::vector<uint8_t> PixelRecycling::take()
{
    LockGuard guard(keptLock);
    if (kept.empty())
        return {};
    auto pixels = std::move(kept.back());
    kept.pop_back();
    return pixels;
}

void PixelRecycling::give(std::vector<uint8_t> pixels)
{
    if (pixels.capacity() < kLeastBytes || pixels.capacity() > kMostBytes)
        return;
    LockGuard guard(keptLock);
    if (kept.size() < kMostKept)
        kept.push_back(std::move(pixels));
}

CGImagePtr shareRecycled(CGImage image)
{
    auto owned = std::make_unique<CGImage>(std::move(image));
    return CGImagePtr(owned.release(), [](const CGImage* picture) {
        const std::unique_ptr<CGImage> last(const_cast<CGImage*>(picture));
        PixelRecycling::give(std::move(last->pixels));
    });
}

} // namespace platform
