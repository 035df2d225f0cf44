#pragma once

#include "platform/picturefiles/ImageFile.h"
#include "platform/picturefiles/PhotoOrigin.h"

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
    /// Of all components: 3 where none is subsampled, 1.5 where colours have half the width and height.
    double samplesPerPixel = 1;
    bool isProgressive = false;
    /// All scans are needed for the first row: the file is progressive, or has a scan for each component.
    bool hasManyScans = false;
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

/// Scans of a file with many of them. Reads all of it.
size_t countJPEGScans(ImageFile& file, const JPEGHeader& header);

/// Reads no more of the file than the header.
/// @return nothing if there is no frame header
std::optional<JPEGHeader> readJPEGHeader(ImageFile& file);

} // namespace platform
