#pragma once

#include "platform/decoders/JPEGPlanes.h"
#include "platform/foundation/Handle.h"

#include <turbojpeg.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace test {

/// What `decodeJPEGPlanes` makes of a file beside what libjpeg makes of it.
enum class JPEGOutcome { LeftAlone, Equal, Different };

/// Whether the library copies more columns of brightness than its blocks have, which it does at small scales where the
/// width is filled up to that of the colours.
inline bool readsBeyondItsMemory(int width, unsigned denominator, int sampling)
{
    const tjscalingfactor factor = {1, static_cast<int>(denominator)};
    return tjPlaneWidth(0, TJSCALED(width, factor), sampling) > (width + 7) / 8 * 8 / factor.denom;
}

/// @param mostPixels  of the file; a larger one is left alone
inline JPEGOutcome compareJPEG(std::span<const uint8_t> bytes, unsigned denominator, uint64_t mostPixels = UINT64_MAX)
{
    using namespace platform;
    const Handle<void, tjDestroy> library(tjInitDecompress());
    int width = 0;
    int height = 0;
    int sampling = -1;
    int space = 0;
    if (tjDecompressHeader3(library.get(), bytes.data(), bytes.size(), &width, &height, &sampling, &space) != 0 ||
        (space != TJCS_YCbCr && space != TJCS_GRAY) ||
        static_cast<uint64_t>(width) * static_cast<uint64_t>(height) > mostPixels)
        return JPEGOutcome::LeftAlone;
    ImagePlanes kind;
    kind.family = sampling == TJSAMP_GRAY ? ImagePlanes::Family::Grey : ImagePlanes::Family::YUV;
    kind.count = sampling == TJSAMP_GRAY ? 1 : 3;
    kind.subsampleX = sampling == TJSAMP_411 ? 2 : sampling == TJSAMP_420 || sampling == TJSAMP_422 ? 1 : 0;
    kind.subsampleY = sampling == TJSAMP_420 || sampling == TJSAMP_440 ? 1 : 0;
    const tjscalingfactor factor = {1, static_cast<int>(denominator)};
    const int shownWidth = TJSCALED(width, factor);
    const int shownHeight = TJSCALED(height, factor);
    if (readsBeyondItsMemory(width, denominator, sampling))
        return JPEGOutcome::LeftAlone;
    PlaneMemory planes(kind, static_cast<size_t>(shownWidth), static_cast<size_t>(shownHeight));
    if (!planes.isReady() || !decodeJPEGPlanes(bytes, denominator, planes))
        return JPEGOutcome::LeftAlone;

    std::array<std::vector<uint8_t>, 3> expected;
    std::array<unsigned char*, 3> pointers{};
    std::array<int, 3> strides{};
    for (size_t plane = 0; plane < kind.count; ++plane) {
        strides[plane] = tjPlaneWidth(static_cast<int>(plane), shownWidth, sampling);
        const int rows = tjPlaneHeight(static_cast<int>(plane), shownHeight, sampling);
        if (static_cast<size_t>(strides[plane]) != planes.width(plane) ||
            static_cast<size_t>(rows) != planes.height(plane))
            return JPEGOutcome::Different;
        expected[plane].resize(planes.width(plane) * planes.height(plane));
        pointers[plane] = expected[plane].data();
    }
    // Of a damaged file it gives what it has.
    (void)tjDecompressToYUVPlanes(library.get(), bytes.data(), bytes.size(), pointers.data(), shownWidth,
                                  strides.data(), shownHeight, 0);
    for (size_t plane = 0; plane < kind.count; ++plane) {
        // What of the brightness lies outside is not shown.
        const size_t columns = plane == 0 ? static_cast<size_t>(shownWidth) : planes.width(plane);
        const size_t rows = plane == 0 ? static_cast<size_t>(shownHeight) : planes.height(plane);
        for (size_t y = 0; y < rows; ++y)
            if (std::memcmp(planes.row(plane, y), expected[plane].data() + y * planes.width(plane), columns) != 0)
                return JPEGOutcome::Different;
    }
    return JPEGOutcome::Equal;
}

} // namespace test
