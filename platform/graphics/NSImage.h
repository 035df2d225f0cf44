#pragma once

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/CGImage.h"

#include <memory>
#include <optional>

namespace platform {

/// A picture with a size in points, which may be fractional and need not be that of its pixels. Never changed once
/// made: any thread.
class NSImage final {
public:
    /// A zero size means the picture's own, in pixels.
    NSImage(CGImagePtr image, CGSize size);

    CGSize size() const { return size_; }
    /// Null for an image without pixels.
    const CGImagePtr& image() const { return image_; }

    /// The picture as a PNG file; nothing if it has no pixels.
    std::optional<NSData> pngData() const;

private:
    const CGImagePtr image_;
    const CGSize size_;
};

using NSImagePtr = std::shared_ptr<const NSImage>;

} // namespace platform
