#include "platform/aac/AACLanes.h"

#include <gtest/gtest.h>

#include <array>

using namespace platform;

namespace {

TEST(AACLanes, AddUpAllOfAnyCount)
{
    const std::array<float, 11> values = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
    const std::array<float, 11> factors = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2};
    for (size_t count = 0; count <= values.size(); ++count) {
        const auto first = std::span(values).first(count);
        const auto sum = static_cast<float>((1 << count) - 1);
        EXPECT_EQ(sumOf(first), sum);
        EXPECT_EQ(energyOf(first), ((1 << 2 * count) - 1) / 3);
        EXPECT_EQ(productOf(first, factors), count == 11 ? sum + 1024 : sum);
    }
}

TEST(AACLanes, MagnitudesHaveNoSign)
{
    const FloatLanes lanes = magnitudes(FloatLanes{-3, 0, 5, -0.25F});
    EXPECT_EQ(lanes[0], 3);
    EXPECT_EQ(lanes[1], 0);
    EXPECT_EQ(lanes[2], 5);
    EXPECT_EQ(lanes[3], 0.25F);
}

} // namespace
