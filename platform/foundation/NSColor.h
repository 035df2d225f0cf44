#pragma once

#include <compare>

namespace platform {

/// An RGB colour; every component from 0 to 1.
struct NSColor {
    enum class Space { Device, Calibrated };

    Space space = Space::Device;
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    /// The same colour in the calibrated space; its components stay, as those of every device here are sRGB's.
    NSColor colorUsingCalibratedRGB() const { return {Space::Calibrated, red, green, blue, alpha}; }

    friend auto operator<=>(const NSColor&, const NSColor&) = default;
};

} // namespace platform
