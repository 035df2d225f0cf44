#include "video/VideoSize.h"

#include "platform/system/NSWorkspace.h"

#include <algorithm>
#include <array>
#include <limits>

using platform::CGSize;

namespace {

/// Rising in both sides.
constexpr std::array<CGSize, 7> kSizes = {
    {{320, 240}, {640, 360}, {854, 480}, {1280, 720}, {1920, 1080}, {2560, 1440}, {3840, 2160}}};

/// The largest size whose next larger one would not be filled by this length; exactly on a bound counts as filled.
template <auto side>
CGSize largestCoveredBy(double length)
{
    for (size_t i = 1; i < kSizes.size(); ++i)
        if (length < kSizes[i].*side)
            return kSizes[i - 1];
    return kSizes.back();
}

CGSize automaticSize(CGSize smallest)
{
    const CGSize byHeight = largestCoveredBy<&CGSize::height>(smallest.height);
    const CGSize byWidth = largestCoveredBy<&CGSize::width>(smallest.width);
    return byWidth.width < byHeight.width || byWidth.height < byHeight.height ? byWidth : byHeight;
}

} // namespace

CGSize VideoSize::videoSizeForQuality(StageContext& context, int64_t quality, const PhotoList& photos,
                                      uint64_t* totalFileSize, PhotoList* failedPhotos)
{
    const auto* const named = std::ranges::find(kSizes, static_cast<double>(quality), &CGSize::height);
    const bool isNamed = named != kSizes.end();
    const auto icon = platform::NSWorkspace::sharedWorkspace().iconForFileType("mov");

    CGSize smallest = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    uint64_t bytes = 0;
    for (size_t i = 0; i < photos.size(); ++i) {
        if (context.isCancelled())
            return platform::kNSZeroSize;
        if (totalFileSize)
            bytes += static_cast<uint64_t>(photos[i]->fileSize());
        if (!isNamed) {
            const CGSize size = photos[i]->size();
            if (size.width < smallest.width)
                smallest.width = size.width;
            if (size.height < smallest.height)
                smallest.height = size.height;
        }
        const ProgressUpdate update = {.title = "VideoCreationTitleCalculatingVideoSize",
                                       .image = icon,
                                       .determinate = true,
                                       .progress = static_cast<double>(i + 1),
                                       .total = static_cast<double>(photos.size()),
                                       .timeInterval = ProgressUpdate::kNoEstimate};
        context.queueProgress([update] { return update; });
    }

    if (totalFileSize)
        *totalFileSize = bytes;
    // Nothing can fail while sizes are only looked at; the list is there for callers that count on one.
    if (failedPhotos)
        failedPhotos->clear();
    return isNamed ? *named : automaticSize(smallest);
}
