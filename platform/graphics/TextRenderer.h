#pragma once

#include "platform/graphics/CGBitmapContext.h"
#include "platform/pixels/CGImage.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace platform {

/// A line of text as a picture with alpha.
struct RenderedText {
    CGImage image;
    /// Where the picture's upper left pixel lies from the lower left corner of the line's box: to the right and up.
    int64_t left = 0;
    int64_t top = 0;
};

/// Whether there is a font with every letter of a line. Any thread.
bool hasFontFor(std::string_view text, const TextAttributes& attributes);

/// Renders a line; the last few stay at hand. Any thread.
/// @return null for a line without anything to see, and if memory is short
std::shared_ptr<const RenderedText> renderText(std::string_view text, const TextAttributes& attributes);

} // namespace platform
