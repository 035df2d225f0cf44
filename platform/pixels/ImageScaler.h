#pragma once

#include "platform/pixels/CGImage.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

/// A picture of 16 bits a component whose colours are still to be converted; pixels as those of CGImage, rows without
/// gaps. What is narrowed before its colours are converted shows steps in a sky.
struct WideImage {
    size_t width = 0;
    size_t height = 0;
    bool hasAlpha = false;
    std::vector<uint16_t> samples;

    const uint16_t* row(size_t y) const { return samples.data() + y * width * 4; }
    uint16_t* row(size_t y) { return samples.data() + y * width * 4; }
};

/// A picture as separate planes of samples, borrowed from their owner. Rows and strides are multiples of 64 bytes.
struct ImagePlanes {
    enum class Family {
        /// One plane, brightness.
        Grey,
        /// Three planes, red, green, blue; a fourth is carried along: alpha of premultiplied colours, or the black of
        /// cyan, magenta and yellow.
        RGB,
        /// Three planes, brightness and two colour differences; a fourth is alpha.
        YUV,
    };
    /// How colour differences are made.
    enum class Matrix { BT601, BT709, BT2020 };
    /// Where a sample of a smaller colour plane lies among those it stands for.
    enum class Siting { Centre, Left };

    struct Plane {
        const uint8_t* samples = nullptr;
        size_t bytesPerRow = 0;
    };

    Family family = Family::RGB;
    Matrix matrix = Matrix::BT601;
    Siting siting = Siting::Centre;
    bool isFullRange = true;
    /// 8, or 9 to 16 for samples of two bytes.
    unsigned depth = 8;
    /// Colour planes are smaller by these powers of two.
    unsigned subsampleX = 0;
    unsigned subsampleY = 0;
    /// Samples of the first plane; multiples of its subsampling.
    size_t width = 0;
    size_t height = 0;
    /// How much of that is the picture, from the upper left; a last sample may stand for less than the others.
    double shownWidth = 0;
    double shownHeight = 0;
    size_t count = 0;
    std::array<Plane, 4> planes;
};

/// Scales planes with a Lanczos window of three lobes and writes pixels, in one pass: X R G B, grey as three equal
/// ones; a fourth plane stands in the place of X. Any thread.
///
/// @param image  out: width x height pixels, its memory used again where it is large enough
/// @return false if the planes are of a kind that cannot be scaled, or memory is short
[[nodiscard]] bool scalePlanes(const ImagePlanes& planes, size_t width, size_t height, CGImage& image);

/// The same without narrowing.
[[nodiscard]] bool scalePlanes(const ImagePlanes& planes, size_t width, size_t height, WideImage& image);

/// Scales a finished picture.
[[nodiscard]] bool scaleImage(const CGImage& from, size_t width, size_t height, CGImage& image);

/// Memory aligned for the scaler that is used again by the next picture of the same thread.
class ScratchMemory final {
public:
    enum class Use { Planes, Scaler };

    /// At least `bytes` bytes, undefined; valid until the thread asks for the same use again.
    /// @return null if memory is short
    static uint8_t* take(Use use, size_t bytes);
};

/// Rounds a row up to what the scaler wants.
constexpr size_t alignedRow(size_t bytes)
{
    return (bytes + 63) / 64 * 64;
}

} // namespace platform
