#pragma once

#include "platform/graphics/CGImage.h"

#include <cstdint>
#include <span>
#include <vector>

namespace platform {

/// What the numbers of a picture mean before it is turned into sRGB.
struct ColorDescription {
    enum class Model {
        RGB,
        /// Three equal components.
        Grey,
        /// Amounts of ink: black in the place of alpha, then cyan, magenta, yellow.
        CMYK,
    };

    Model model = Model::RGB;
    /// An ICC profile; empty for none.
    std::vector<uint8_t> profile = {};
    /// Primaries and transfer by the numbers of ITU-T H.273 where a container gives those instead; 2 means not stated.
    int primaries = 2;
    int transfer = 2;
};

/// Turns the picture into sRGB in place; one that is sRGB already, says nothing or has a damaged profile stays as it
/// is. Ink without a profile is mixed by the simple rule. Any thread.
void convertToSRGB(CGImage& image, const ColorDescription& description);

} // namespace platform
