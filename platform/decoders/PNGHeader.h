#pragma once

#include "platform/decoders/HEIFContainer.h"
#include "platform/decoders/ImageFile.h"
#include "platform/pixels/ColorProfile.h"

#include <optional>

namespace platform {

/// What the chunks before the pixels of a PNG file tell that the library reads without telling, or not at all.
struct PNGHeader {
    std::optional<double> dpi;
    /// Numbers of ITU-T H.273.
    std::optional<HEIFColors> codes;
    bool isSRGB = false;
    /// In seven passes, which need the whole picture in memory.
    bool isInterlaced = false;
    /// At least 1.
    unsigned bytesPerPixel = 1;
    std::optional<ColorDescription::PowerSpace> space;
    /// EXIF names more folders than there are kinds of them: to those who follow each it never ends.
    bool hasTangledEXIF = false;
};

/// Looks at no more than the first 256 chunks.
PNGHeader readPNGHeader(const ImageFile& file);

} // namespace platform
