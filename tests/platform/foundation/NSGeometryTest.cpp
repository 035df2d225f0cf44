#include "platform/foundation/NSGeometry.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace platform;

TEST(NSGeometry, WritesASizeInBraces)
{
    EXPECT_EQ(NSStringFromSize({0, 0}), "{0, 0}");
    EXPECT_EQ(NSStringFromSize({4000, 3000}), "{4000, 3000}");
    EXPECT_EQ(NSStringFromSize({0.1, 87.6}), "{0.10000000000000001, 87.599999999999994}");
    EXPECT_EQ(NSStringFromSize({1e21, -2}), "{1e+21, -2}");
}

TEST(NSGeometry, ReadsTheFirstTwoNumbersAsASize)
{
    struct Row {
        std::string_view text;
        CGSize size;
    };
    for (const Row& row : {
             Row{"{4000, 3000}", {4000, 3000}},
             Row{"4000 3000", {4000, 3000}},
             Row{"{12.5}", {12.5, 0}},
             Row{"", {0, 0}},
             Row{"{}", {0, 0}},
             Row{"none", {0, 0}},
             Row{"{-1, -2.5}", {-1, -2.5}},
             Row{"{.5, 2}", {5, 2}},
             Row{"{-, 7}", {0, 7}},
             Row{"{1e3, 2}", {1000, 2}},
             Row{"{1, 2, 3}", {1, 2}},
             Row{"{1,2}", {1, 2}},
             Row{"{0x10, 3}", {0, 10}},
             Row{"width 10 height 20", {10, 20}},
         })
        EXPECT_EQ(NSSizeFromString(row.text), row.size) << row.text;
}

TEST(NSGeometry, ReadsBackEverySizeThatItWrites)
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(-30, 30);
    for (int i = 0; i < 2000; ++i) {
        const CGSize size{std::pow(10, exponent(random)), -std::pow(10, exponent(random))};
        EXPECT_EQ(NSSizeFromString(NSStringFromSize(size)), size) << NSStringFromSize(size);
    }
}
