#pragma once

namespace platform {

/// An RGB colour; every component from 0 to 1.
struct NSColor {
    enum class Space { Device, Calibrated };

    Space space = Space::Device;
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    friend bool operator==(const NSColor&, const NSColor&) = default;
};

} // namespace platform
