#pragma once

#include "platform/picturefiles/ImageFile.h"
#include "platform/picturefiles/PhotoOrigin.h"

#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// What a picture's EXIF block tells.
struct EXIF {
    /// 1 to 8; nothing where another value or none stands there.
    std::optional<int> orientation;
    /// Dots an inch.
    std::optional<double> dpi;
    /// The colour space is none that EXIF knows, and the rules of interoperability name Adobe RGB.
    bool isAdobeRGB = false;
    /// What is no date, and no place on Earth, counts as not told.
    PhotoOrigin origin;
};

/// Reads a TIFF structure, with or without "Exif\0\0" in front. Damage gives what was read before it.
EXIF parseEXIF(std::span<const uint8_t> bytes);

/// What a TIFF file, which is such a structure itself, tells of how it was taken.
PhotoOrigin readTIFFOrigin(const ImageFile& file);

} // namespace platform
