#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/CGContext.h"
#include "platform/pixels/CGImage.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace platform {

class NSImage;
using NSImagePtr = std::shared_ptr<const NSImage>;

/// A picture with a size in points, which may be fractional and need not be that of its pixels. Pixels that are drawn
/// or decoded come into being when they are first needed; otherwise never changed once made. Any thread.
class NSImage final {
public:
    /// Draws the image.
    ///
    /// @param rect  origin zero, the image's size
    /// @return false if it could not; the image then has no pixels
    using DrawingHandler = std::function<bool(CGContext& context, CGRect rect)>;

    /// A zero size means the picture's own, in pixels.
    NSImage(CGImagePtr image, CGSize size);

    /// @name The first picture of a file, at the size that its resolution makes of it: pixels x 72 / dpi, or pixels
    /// where it states none.
    /// @return null if a picture does not come of decoding it; `error` says why
    /// @{
    [[nodiscard]] static NSImagePtr imageWithContentsOfURL(const NSURL& url, NSError* error = nullptr);
    /// Kept as it is until its pixels are needed.
    [[nodiscard]] static NSImagePtr imageWithData(NSData data, NSError* error = nullptr);
    /// @}

    /// An image that is drawn when its pixels are first asked for, once, on that thread; `handler`, which
    /// must not ask for them, is let go after it.
    ///
    /// @param size  points; the pixels are as many, rounded up
    static NSImagePtr imageWithSize(CGSize size, CGContext::Origin origin, DrawingHandler handler);

    /// Draws or decodes now what else would be when it is needed.
    /// @return whether the image has pixels
    bool render() const { return image() != nullptr; }

    CGSize size() const { return size_; }
    /// Null for an image without pixels.
    CGImagePtr image() const;

    /// The picture as an uncompressed TIFF file; nothing if it has no pixels.
    std::optional<NSData> TIFFRepresentation() const;

    /// The picture as a PNG file; nothing if it has no pixels.
    std::optional<NSData> pngData() const;

private:
    using PixelMaker = std::function<CGImagePtr()>;

    NSImage(CGSize size, PixelMaker makePixels);

    const CGSize size_;
    mutable std::once_flag made_;
    // Only within made_, or after it.
    mutable CGImagePtr image_;
    mutable PixelMaker makePixels_;
};

} // namespace platform
