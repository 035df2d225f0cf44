#include "platform/encoders/ImageEncoder.h"

#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace platform {

namespace {

void append(NSData& bytes, uint64_t value, size_t width)
{
    for (size_t i = 0; i < width; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint32_t dotsPerMetre(size_t pixels, double points)
{
    constexpr double kMetresPerInch = 0.0254;
    return static_cast<uint32_t>(std::lround(dotsPerInch(pixels, points) / kMetresPerInch));
}

} // namespace

std::optional<NSData> encodeBMP(const CGImage& image, CGSize size)
{
    if (image.width == 0 || image.height == 0)
        return std::nullopt;
    const size_t bands = image.hasAlpha ? 4 : 3;
    const uint64_t bytesPerRow = (uint64_t{image.width} * bands + 3) / 4 * 4;
    // The header's lengths are 32-bit numbers, and many readers take them for signed ones.
    constexpr uint64_t kMostBytes = (uint64_t{1} << 31) - 256;
    if (image.width > kMostBytes || image.height > kMostBytes / bytesPerRow)
        return std::nullopt;
    const uint64_t pixelBytes = bytesPerRow * image.height;

    constexpr size_t kFileHeaderBytes = 14;
    // The oldest that tells of a resolution, and the oldest that tells of alpha.
    const size_t headerBytes = image.hasAlpha ? 108 : 40;
    const size_t start = kFileHeaderBytes + headerBytes;
    try {
        NSData bmp;
        bmp.reserve(start + pixelBytes);
        bmp.insert(bmp.end(), {'B', 'M'});
        append(bmp, start + pixelBytes, 4);
        append(bmp, 0, 4);
        append(bmp, start, 4);

        constexpr uint64_t kUncompressed = 0;
        constexpr uint64_t kMasks = 3;
        append(bmp, headerBytes, 4);
        append(bmp, image.width, 4);
        append(bmp, image.height, 4);
        append(bmp, 1, 2);
        append(bmp, 8 * bands, 2);
        append(bmp, image.hasAlpha ? kMasks : kUncompressed, 4);
        append(bmp, pixelBytes, 4);
        append(bmp, dotsPerMetre(image.width, size.width), 4);
        append(bmp, dotsPerMetre(image.height, size.height), 4);
        // No palette.
        append(bmp, 0, 8);
        if (image.hasAlpha) {
            for (const uint32_t mask : {0x00FF0000u, 0x0000FF00u, 0x000000FFu, 0xFF000000u})
                append(bmp, mask, 4);
            // "sRGB", which leaves primaries and curves unused.
            append(bmp, 0x73524742, 4);
        }
        bmp.resize(start, 0);

        bmp.resize(start + pixelBytes, 0);
        std::vector<uint8_t> row(image.width * bands);
        for (size_t y = 0; y < image.height; ++y) {
            copyUnmultiplied(image, y, row.data());
            // The lowest row comes first, blue before red.
            uint8_t* to = bmp.data() + start + (image.height - 1 - y) * bytesPerRow;
            for (size_t i = 0; i < row.size(); i += bands, to += bands) {
                to[0] = row[i + 2];
                to[1] = row[i + 1];
                to[2] = row[i];
                if (image.hasAlpha)
                    to[3] = row[i + 3];
            }
        }
        return bmp;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

} // namespace platform
