#pragma once

#include "platform/picturefiles/HEIFContainer.h"
#include "platform/picturefiles/ImageFile.h"
#include "platform/pixels/ColorProfile.h"

#include <cstdint>
#include <optional>

namespace platform {

/// What the chunks before the pixels of a PNG file tell that the library reads without telling, or not at all.
struct PNGHeader {
    size_t width = 0;
    size_t height = 0;
    /// Bits of a sample.
    unsigned depth = 0;
    /// Of a pixel; 1 for the number of a colour in a palette.
    unsigned samples = 1;
    bool hasPalette = false;
    /// One of the colours, or some of the palette's, stand for less than all of it.
    bool hasColorForNone = false;
    std::optional<double> dpi;
    /// Numbers of ITU-T H.273.
    std::optional<HEIFColors> codes;
    bool isSRGB = false;
    /// In seven passes, which need the whole picture in memory.
    bool isInterlaced = false;
    /// At least 1.
    unsigned bytesPerPixel = 1;
    /// What compressed texts may become at the most.
    uint64_t textBytes = 0;
    std::optional<ColorDescription::PowerSpace> space;
};

/// Looks at no more than the first 65,536 chunks.
PNGHeader readPNGHeader(const ImageFile& file);

} // namespace platform
