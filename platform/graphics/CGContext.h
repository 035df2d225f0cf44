#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"

#include <memory>

namespace platform {

/// What a drawing handler draws with: points, over pixels that were clear; lines and edges are smoothed. One thread at
/// a time.
class CGContext final {
public:
    enum class Origin {
        LowerLeft,
        /// Of a flipped image.
        UpperLeft,
    };

    /// Clear pixels, as many as cover the size.
    ///
    /// @param size  points; the edges of the pixels are its edges, also where it is fractional
    CGContext(CGSize size, Origin origin);
    ~CGContext();
    CGContext(const CGContext&) = delete;
    CGContext& operator=(const CGContext&) = delete;

    /// False where memory was short or the size is none that pixels can have; drawing then does nothing.
    bool isReady() const;

    /// @name Black at first.
    /// @{
    void setFillColor(const NSColor& color);
    void setStrokeColor(const NSColor& color);
    /// @}
    /// Points; 1 at first.
    void setLineWidth(double width);

    void fillRect(CGRect rect);
    void strokeRect(CGRect rect);

    /// @name A path of straight lines, which stroking and filling end.
    /// @{
    void moveToPoint(CGPoint point);
    void addLineToPoint(CGPoint point);
    void closePath();
    void strokePath();
    void fillPath();
    /// @}

    /// Draws the whole picture into the rectangle, upright whatever the origin.
    void drawImage(CGRect rect, const CGImage& image);

    /// What was drawn so far; null if the context is not ready. `hasAlpha` only if a pixel is not opaque.
    CGImagePtr createImage() const;

private:
    struct Surface;
    const std::unique_ptr<Surface> surface_;
};

} // namespace platform
