#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// How a line of text is drawn.
struct TextAttributes {
    /// A full name, "Helvetica Neue Medium"; a font that is not there is replaced by one of its kind.
    std::string fontName = "Helvetica";
    /// Pixels.
    double fontSize = 12;
    NSColor foregroundColor;
    NSColor strokeColor;
    /// Percent of the font size; negative: filled, then stroked; positive: stroked only; 0: filled only.
    double strokeWidth = 0;

    friend auto operator<=>(const TextAttributes&, const TextAttributes&) = default;
};

/// Draws over pixels X R G B of the caller, top row first; X is always 0xFF. Coordinates have their origin in the lower
/// left corner and count pixels; what lies outside is not drawn. One thread at a time.
class CGBitmapContext final {
public:
    /// Borrows `pixels` for as long as the context lives.
    CGBitmapContext(uint8_t* pixels, size_t width, size_t height, size_t bytesPerRow);

    /// Makes the rectangle black; edges are rounded to whole pixels.
    void clearRect(CGRect rect);

    /// Draws the picture into the rectangle, whose origin is cut down to whole pixels and whose size is rounded to
    /// them; without scaling where the two sizes agree.
    /// @return false if it would have to be scaled and memory was short
    bool drawImage(CGRect rect, const CGImage& image);

    /// Draws one line of UTF-8 text; `point` is the lower left corner of the line's box, on whole pixels.
    void drawTextAtPoint(std::string_view text, CGPoint point, const TextAttributes& attributes);

private:
    void blend(const CGImage& image, int64_t left, int64_t top);

    uint8_t* const pixels_;
    const size_t width_;
    const size_t height_;
    const size_t bytesPerRow_;
};

} // namespace platform
