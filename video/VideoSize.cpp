#include "video/VideoSize.h"

#include "platform/system/NSWorkspace.h"

#include <limits>

using platform::CGSize;

CGSize VideoSize::videoSizeForQuality(StageContext& context, int64_t quality, const PhotoList& photos,
                                      uint64_t* totalFileSize, PhotoList* failedPhotos)
{
    const auto named = sizeNamed(quality);
    const auto icon = platform::NSWorkspace::sharedWorkspace().iconForFileType("mov");

    CGSize smallest = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    uint64_t bytes = 0;
    for (size_t i = 0; i < photos.size(); ++i) {
        if (context.isCancelled())
            return platform::kNSZeroSize;
        if (totalFileSize)
            bytes += static_cast<uint64_t>(photos[i]->fileSize());
        if (!named) {
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
    return named ? *named : sizeCoveredBy(smallest);
}
