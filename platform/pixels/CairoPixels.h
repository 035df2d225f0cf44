#pragma once

#include "platform/pixels/CGImage.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {

/// @name Between our pixels, the bytes A R G B, and Cairo's, numbers 0xAARRGGBB of the machine's byte order.
/// @{
inline void copyToCairo(const CGImage& image, uint8_t* pixels, size_t bytesPerRow)
{
    for (size_t y = 0; y < image.height; ++y) {
        const uint8_t* from = image.row(y);
        uint8_t* to = pixels + y * bytesPerRow;
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4) {
            const uint32_t pixel = uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
            std::memcpy(to, &pixel, sizeof pixel);
        }
    }
}

/// `image` has its size; its pixels are there.
inline void copyFromCairo(const uint8_t* pixels, size_t bytesPerRow, CGImage& image)
{
    for (size_t y = 0; y < image.height; ++y) {
        const uint8_t* from = pixels + y * bytesPerRow;
        uint8_t* to = image.row(y);
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4) {
            uint32_t pixel = 0;
            std::memcpy(&pixel, from, sizeof pixel);
            for (size_t i = 0; i < 4; ++i)
                to[i] = static_cast<uint8_t>(pixel >> (24 - 8 * i));
        }
    }
}
/// @}

} // namespace platform
