#pragma once

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace platform {

/// @name One for each format; nothing if the picture has no pixels or more than the format can hold, or memory is
/// short. Any thread.
///
/// @param size  points; what the file says of its resolution comes of it
/// @{

/// Uncompressed, with alpha beside colours that are not multiplied with it.
std::optional<NSData> encodeTIFF(const CGImage& image, CGSize size);
std::optional<NSData> encodePNG(const CGImage& image, CGSize size);
/// With alpha where the picture has it, in the way of newer files.
std::optional<NSData> encodeBMP(const CGImage& image, CGSize size);
/// At most 256 colours; a pixel is clear or opaque.
std::optional<NSData> encodeGIF(const CGImage& image);
/// Over white where the picture is not opaque.
///
/// @param compressionFactor  0 to 1; 1 is the largest file
std::optional<NSData> encodeJPEG(const CGImage& image, CGSize size, double compressionFactor);
/// @param compressionFactor  0 to 1; 1 keeps every pixel as it is
std::optional<NSData> encodeJPEG2000(const CGImage& image, double compressionFactor);
/// One page of the size in points with the picture all over it.
std::optional<NSData> encodePDF(const CGImage& image, CGSize size);
/// @}

/// 0 to 1; 0 for what is no number.
double clampedFactor(double compressionFactor);

/// Dots an inch of a side of so many pixels; 72 where the points are none that a picture can have.
double dotsPerInch(size_t pixels, double points);

/// A row's samples: red, green, blue, and alpha where the picture has it, which the colours are then divided by.
void copyUnmultiplied(const CGImage& image, size_t y, uint8_t* samples);

} // namespace platform
