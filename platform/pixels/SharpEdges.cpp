#include "platform/pixels/SharpEdges.h"

#include <algorithm>
#include <cstdlib>

namespace platform {

namespace {

constexpr size_t kRows = 16;
constexpr int kFar = 64;
/// Waves of a block that is decoded at a half end within so many samples; beyond them so many others differ by so
/// little on flat ground.
constexpr size_t kGap = 4;
constexpr size_t kGround = 4;
constexpr int kFlat = 3;

bool isFlat(const uint8_t* samples, size_t step)
{
    int least = 255;
    int most = 0;
    for (size_t i = 0; i < kGround; ++i) {
        least = std::min<int>(least, samples[i * step]);
        most = std::max<int>(most, samples[i * step]);
    }
    return most - least <= kFlat;
}

/// @param line  all samples of a row or column
/// @param place  of the sample before the edge
bool isOnFlatGround(const uint8_t* line, size_t step, size_t length, size_t place)
{
    constexpr size_t kReach = kGap + kGround;
    return (place + 1 >= kReach && isFlat(line + (place + 1 - kReach) * step, step)) ||
           (place + 1 + kReach <= length && isFlat(line + (place + 1 + kGap) * step, step));
}

} // namespace

SharpEdges sharpEdgesOf(const uint8_t* samples, size_t step, size_t width, size_t height, size_t bytesPerRow)
{
    size_t pairs = 0;
    size_t edges = 0;
    size_t onFlatGround = 0;
    for (size_t y = 0; y + 1 < height; y += kRows) {
        const uint8_t* const row = samples + y * bytesPerRow;
        const uint8_t* const below = row + bytesPerRow;
        for (size_t x = 0; x + 1 < width; ++x) {
            const int sample = row[x * step];
            if (std::abs(sample - row[(x + 1) * step]) > kFar) {
                ++edges;
                onFlatGround += isOnFlatGround(row, step, width, x);
            }
            if (std::abs(sample - below[x * step]) > kFar) {
                ++edges;
                onFlatGround += isOnFlatGround(samples + x * step, bytesPerRow, height, y);
            }
        }
        pairs += 2 * (width - 1);
    }
    if (pairs == 0)
        return {};
    const auto all = static_cast<double>(pairs);
    return {static_cast<double>(edges) / all, static_cast<double>(onFlatGround) / all};
}

} // namespace platform
