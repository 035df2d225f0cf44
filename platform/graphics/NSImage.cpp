#include "platform/graphics/NSImage.h"

#include "platform/graphics/CGImageSource.h"
#include "platform/graphics/ImageEncoder.h"

#include <utility>

namespace platform {

namespace {

constexpr double kPointsPerInch = 72;

CGSize sizeOrPixels(const CGImagePtr& image, CGSize size)
{
    if (size == kNSZeroSize && image)
        return {static_cast<double>(image->width), static_cast<double>(image->height)};
    return size;
}

CGSize sizeInPoints(const CGImageSource::Properties& properties)
{
    const double points = properties.dpi && *properties.dpi > 0 ? kPointsPerInch / *properties.dpi : 1;
    return {static_cast<double>(properties.pixelWidth) * points, static_cast<double>(properties.pixelHeight) * points};
}

} // namespace

NSImage::NSImage(CGImagePtr image, CGSize size) : size_(sizeOrPixels(image, size)), image_(std::move(image)) {}

NSImage::NSImage(CGSize size, PixelMaker makePixels) : size_(size), makePixels_(std::move(makePixels)) {}

NSImagePtr NSImage::imageWithContentsOfURL(const NSURL& url, NSError* error)
{
    return imageWithSource(CGImageSource::createWithURL(url, error), error);
}

NSImagePtr NSImage::imageWithData(NSData data, NSError* error)
{
    return imageWithSource(CGImageSource::createWithData(std::move(data), "the data", error), error);
}

NSImagePtr NSImage::imageWithSource(std::shared_ptr<CGImageSource> source, NSError* error)
{
    if (!source)
        return nullptr;
    const auto properties = source->copyPropertiesAtIndex(error);
    if (!properties || !source->canDecode(error))
        return nullptr;
    return NSImagePtr(new NSImage(sizeInPoints(*properties), [source] { return source->createImageAtIndex(); }));
}

NSImagePtr NSImage::imageWithSize(CGSize size, CGContext::Origin origin, DrawingHandler handler)
{
    return NSImagePtr(new NSImage(size, [size, origin, handler = std::move(handler)]() -> CGImagePtr {
        CGContext context(size, origin);
        if (!context.isReady() || !handler || !handler(context, {{}, size}))
            return nullptr;
        return context.createImage();
    }));
}

CGImagePtr NSImage::image() const
{
    std::call_once(made_, [this] {
        if (!makePixels_)
            return;
        image_ = makePixels_();
        makePixels_ = nullptr;
    });
    return image_;
}

std::optional<NSData> NSImage::TIFFRepresentation() const
{
    const CGImagePtr pixels = image();
    return pixels ? encodeTIFF(*pixels, size_) : std::nullopt;
}

std::optional<NSData> NSImage::pngData() const
{
    const CGImagePtr pixels = image();
    return pixels ? encodePNG(*pixels, size_) : std::nullopt;
}

} // namespace platform
