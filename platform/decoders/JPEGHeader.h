#pragma once

#include "platform/decoders/ImageFile.h"
#include "platform/decoders/PhotoOrigin.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace platform {

/// What stands before the first scan of a JPEG file.
struct JPEGHeader {
    size_t width = 0;
    size_t height = 0;
    unsigned bitsPerSample = 8;
    unsigned components = 0;
    bool isProgressive = false;
    /// Bytes before the first scan.
    size_t length = 0;
    /// Whether inks are stored upside down, as the maker of the Adobe segment does.
    bool hasAdobeSegment = false;
    /// Whether EXIF says so; a profile counts before it.
    bool isAdobeRGB = false;
    std::optional<int> orientation;
    std::optional<double> dpi;
    PhotoOrigin origin;
    /// Put together of its parts; empty where one is missing.
    std::vector<uint8_t> colorProfile;
};

/// Reads no more of the file than the header.
/// @return nothing if there is no frame header
std::optional<JPEGHeader> readJPEGHeader(ImageFile& file);

} // namespace platform
