#include "util/MORPalvineCommons.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/foundation/NSLog.h"
#include "platform/system/NSWorkspace.h"

#include <utility>

using platform::CGImageSource;
using platform::CGSize;
using platform::NSWorkspace;

namespace {

constexpr const char* kOperation = "+[MORPalvineCommons sizeOfImageAtURL:]";

CGSize sizeOf(size_t width, size_t height)
{
    return {static_cast<double>(width), static_cast<double>(height)};
}

} // namespace

CGSize MORPalvineCommons::sizeOfImageAtURL(const std::optional<platform::NSURL>& url)
{
    if (!url)
        return platform::kNSZeroSize;
    const auto type = NSWorkspace::sharedWorkspace().typeOfFile(*url);
    if (!type || !NSWorkspace::conformsToImage(*type))
        return platform::kNSZeroSize;

    const auto source = CGImageSource::createWithURL(*url);
    if (!source) {
        platform::logFailure(kOperation, "failed to calculate size for photo at url: " + url->absoluteString());
        return platform::kNSZeroSize;
    }
    if (const auto properties = source->copyPropertiesAtIndex()) {
        CGSize size = sizeOf(properties->pixelWidth, properties->pixelHeight);
        // The four orientations that turn a picture by a quarter.
        if (properties->orientation >= 5 && properties->orientation <= 8)
            std::swap(size.width, size.height);
        return size;
    }
    if (const auto image = source->createImageAtIndex())
        return sizeOf(image->width, image->height);
    platform::logFailure(kOperation, "file could not be read for determining dimensions, could not even load "
                                     "properties: " +
                                         url->absoluteString());
    return platform::kNSZeroSize;
}
