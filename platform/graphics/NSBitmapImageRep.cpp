#include "platform/graphics/NSBitmapImageRep.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/encoders/ImageEncoder.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace platform {

namespace {

// What cameras and the web take for good enough.
constexpr double kUsualCompressionFactor = 0.85;

} // namespace

NSBitmapImageRep::NSBitmapImageRep(CGImagePtr image, CGSize size) : image_(std::move(image)), size_(size)
{
    assert(image_ && image_->width > 0 && image_->height > 0);
    if (size_ == kNSZeroSize)
        size_ = {static_cast<double>(image_->width), static_cast<double>(image_->height)};
}

std::optional<NSBitmapImageRep> NSBitmapImageRep::imageRepWithData(NSData data, NSError* error)
{
    const auto source = CGImageSource::createWithData(std::move(data), "the data", error);
    const auto properties = source ? source->copyPropertiesAtIndex(error) : std::nullopt;
    if (!properties)
        return std::nullopt;
    auto image = source->createImageAtIndex(error);
    return image ? std::optional(NSBitmapImageRep(std::move(image), properties->size())) : std::nullopt;
}

std::optional<NSColor> NSBitmapImageRep::colorAtX(int64_t x, int64_t y) const
{
    if (x < 0 || y < 0 || x >= static_cast<int64_t>(pixelsWide()) || y >= static_cast<int64_t>(pixelsHigh()))
        return std::nullopt;
    const uint8_t* const pixel = image_->row(static_cast<size_t>(y)) + 4 * x;
    constexpr double kMost = 255;
    const double alpha = image_->hasAlpha ? pixel[0] / kMost : 1;
    // A clear pixel's components stay as they are.
    const double divisor = alpha > 0 ? kMost * alpha : kMost;
    return NSColor{.red = std::min(1.0, pixel[1] / divisor),
                   .green = std::min(1.0, pixel[2] / divisor),
                   .blue = std::min(1.0, pixel[3] / divisor),
                   .alpha = alpha};
}

std::optional<NSData> NSBitmapImageRep::representationUsingType(NSBitmapImageFileType type,
                                                                const Properties& properties) const
{
    const double factor = properties.compressionFactor.value_or(kUsualCompressionFactor);
    switch (type) {
    case NSBitmapImageFileType::TIFF:
        return encodeTIFF(*image_, size_);
    case NSBitmapImageFileType::BMP:
        return encodeBMP(*image_, size_);
    case NSBitmapImageFileType::GIF:
        return encodeGIF(*image_);
    case NSBitmapImageFileType::JPEG:
        return encodeJPEG(*image_, size_, factor);
    case NSBitmapImageFileType::PNG:
        return encodePNG(*image_, size_);
    case NSBitmapImageFileType::JPEG2000:
        return encodeJPEG2000(*image_, factor);
    }
    return std::nullopt;
}

std::optional<NSData> NSBitmapImageRep::PDFRepresentation() const
{
    return encodePDF(*image_, size_);
}

} // namespace platform
