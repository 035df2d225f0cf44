#pragma once

#include "platform/pixels/CGImage.h"
#include "platform/pixels/ImageScaler.h"

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
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

    /// A space of three primaries and a power.
    struct PowerSpace {
        /// Chromaticities x and y of red, green, blue and white; sRGB's unless stated.
        std::array<double, 8> chromaticities = {0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3290};
        /// Light is the number to this power; nothing for sRGB's curve.
        std::optional<double> power = {};

        auto operator<=>(const PowerSpace&) const = default;
    };

    /// The space that cameras mean by "Adobe RGB" without a profile.
    static constexpr PowerSpace kAdobeRGB = {{0.64, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3290}, 563.0 / 256};

    Model model = Model::RGB;
    /// An ICC profile; empty for none.
    std::vector<uint8_t> profile = {};
    /// Primaries and transfer by the numbers of ITU-T H.273 where a container gives those instead; 2 means not stated.
    int primaries = 2;
    int transfer = 2;
    /// Counts where neither of the above is there.
    std::optional<PowerSpace> space = {};

    auto operator<=>(const ColorDescription&) const = default;
};

/// Whether the picture's numbers become others in sRGB, but for rounding.
bool changesColors(const ColorDescription& description);

/// Turns the picture into sRGB in place; one that is sRGB already, says nothing or has a damaged profile stays as it
/// is. Ink without a profile is mixed by the simple rule. Of light for screens that go beyond white (transfer 16 and
/// 18), 203 cd/m2 counts as the white of others, as ITU-R BT.2408 has it, and what is brighter, up to 1000 cd/m2, is
/// brought below white by that report's curve. Any thread.
void convertToSRGB(CGImage& image, const ColorDescription& description);

/// The same of 16 bits, which are narrowed, to the nearest, when all else is done.
///
/// @param image  out: its memory is used again where it is large enough
void convertToSRGB(WideImage& wide, const ColorDescription& description, CGImage& image);

} // namespace platform
