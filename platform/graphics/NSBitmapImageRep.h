#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace platform {

enum class NSBitmapImageFileType { TIFF = 0, BMP = 1, GIF = 2, JPEG = 3, PNG = 4, JPEG2000 = 5 };

/// The pixels of an image. Never changed once made: any thread.
class NSBitmapImageRep final {
public:
    /// How a file is written.
    struct Properties {
        /// "NSImageCompressionFactor", 0 to 1, used by JPEG and JPEG 2000 alone: 1 keeps the most and takes the most
        /// room. Nothing: the platform's choice.
        std::optional<double> compressionFactor;
    };

    /// @param image  not null, with pixels
    /// @param size   points; zero: one for each pixel
    explicit NSBitmapImageRep(CGImagePtr image, CGSize size = kNSZeroSize);

    /// The first picture of a file's bytes, as stored.
    /// @return nothing if it cannot be decoded
    [[nodiscard]] static std::optional<NSBitmapImageRep> imageRepWithData(NSData data, NSError* error = nullptr);

    size_t pixelsWide() const { return image_->width; }
    size_t pixelsHigh() const { return image_->height; }
    CGSize size() const { return size_; }

    /// The colour of a pixel, its alpha taken out of its components; (0, 0) is the upper left.
    /// @return nothing outside the picture
    std::optional<NSColor> colorAtX(int64_t x, int64_t y) const;

    /// The picture as a file.
    /// @return nothing if the format cannot hold it, or memory is short
    std::optional<NSData> representationUsingType(NSBitmapImageFileType type, const Properties& properties) const;

    /// The picture as a page of its size.
    std::optional<NSData> PDFRepresentation() const;

private:
    CGImagePtr image_;
    CGSize size_;
};

} // namespace platform
