#include "platform/graphics/NSImage.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/encoders/ImageEncoder.h"

#include <utility>

namespace platform {

namespace {

CGSize sizeOrPixels(const CGImagePtr& image, CGSize size)
{
    if (size == kNSZeroSize && image)
        return {static_cast<double>(image->width), static_cast<double>(image->height)};
    return size;
}

} // namespace

NSImage::NSImage(CGImagePtr image, CGSize size) : size_(sizeOrPixels(image, size)), image_(std::move(image)) {}

NSImage::NSImage(CGSize size, PixelMaker makePixels) : size_(size), makePixels_(std::move(makePixels)) {}

NSImagePtr NSImage::imageWithContentsOfURL(const NSURL& url, NSError* error)
{
    const auto source = CGImageSource::createWithURL(url, error);
    const auto properties = source ? source->copyPropertiesAtIndex(error) : std::nullopt;
    if (!properties)
        return nullptr;
    auto image = source->createImageAtIndex(error);
    return image ? std::make_shared<const NSImage>(std::move(image), properties->size()) : nullptr;
}

NSImagePtr NSImage::imageWithData(NSData data, NSError* error)
{
    const std::shared_ptr<CGImageSource> source = CGImageSource::createWithData(std::move(data), "the data", error);
    const auto properties = source ? source->copyPropertiesAtIndex(error) : std::nullopt;
    if (!properties || !source->canDecode(error))
        return nullptr;
    return NSImagePtr(new NSImage(properties->size(), [source] { return source->createImageAtIndex(); }));
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
