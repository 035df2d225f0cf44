#include "platform/pixels/SquareAverages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

using platform::SquareAverages;

namespace {

/// Rounded means of all squares of noise, with many samples at either end of their range.
template <typename Sample>
void expectRoundedMeans(size_t width, size_t height, size_t bands, size_t side)
{
    constexpr unsigned kMost = std::numeric_limits<Sample>::max();
    std::minstd_rand random(1);
    std::vector<Sample> samples(width * height * bands);
    for (Sample& sample : samples)
        sample = static_cast<Sample>(random() % 3 == 0 ? kMost : random() % (kMost + 1));

    SquareAverages squares(width, bands, side);
    const size_t columns = (width + side - 1) / side;
    for (size_t y = 0, last = 0; y < height; ++y) {
        squares.addRow(samples.data() + y * width * bands);
        if ((y + 1) % side != 0 && y + 1 != height)
            continue;
        size_t calls = 0;
        squares.finish<Sample>([&](size_t column, size_t band, Sample mean) {
            ++calls;
            uint64_t sum = 0;
            uint64_t count = 0;
            for (size_t row = last; row <= y; ++row)
                for (size_t x = column * side; x < std::min(width, (column + 1) * side); ++x, ++count)
                    sum += samples[(row * width + x) * bands + band];
            ASSERT_EQ(mean, (sum + count / 2) / count) << column << ", " << band << ", " << y << ", " << side;
        });
        EXPECT_EQ(calls, columns * bands);
        last = y + 1;
    }
}

} // namespace

TEST(SquareAverages, AreRoundedMeans)
{
    for (size_t bands = 1; bands <= 4; ++bands)
        for (const size_t side : {1, 2, 3, 7, 16, 255, 256}) {
            expectRoundedMeans<uint8_t>(301, 270, bands, side);
            expectRoundedMeans<uint16_t>(301, 270, bands, side);
        }
    expectRoundedMeans<uint8_t>(1300, 400, 1, 400);
    expectRoundedMeans<uint8_t>(5, 3, 3, 256);
}
