#include "platform/pixels/SharpEdges.h"

#include <cstdlib>

namespace platform {

bool hasSharpEdges(const uint8_t* samples, size_t step, size_t width, size_t height, size_t bytesPerRow)
{
    constexpr size_t kRows = 16;
    constexpr int kFar = 64;
    constexpr size_t kOneIn = 256;
    size_t pairs = 0;
    size_t edges = 0;
    for (size_t y = 0; y + 1 < height; y += kRows) {
        const uint8_t* const row = samples + y * bytesPerRow;
        const uint8_t* const below = row + bytesPerRow;
        size_t found = 0;
        for (size_t x = 0; x + 1 < width; ++x) {
            const int sample = row[x * step];
            found += std::abs(sample - row[(x + 1) * step]) > kFar;
            found += std::abs(sample - below[x * step]) > kFar;
        }
        edges += found;
        pairs += 2 * (width - 1);
    }
    return edges * kOneIn > pairs;
}

} // namespace platform
