#include <stillora/Photos.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

std::vector<std::string> sorted(std::vector<std::string> names)
{
    std::sort(names.begin(), names.end(), isBeforeInNaturalOrder);
    return names;
}

TEST(NaturalOrder, CountsNumbersByValue)
{
    EXPECT_THAT(sorted({"img10.jpg", "img2.jpg", "img1.jpg", "img100.jpg"}),
                testing::ElementsAre("img1.jpg", "img2.jpg", "img10.jpg", "img100.jpg"));
}

TEST(NaturalOrder, ComparesNumbersLongerThanAnyIntegerType)
{
    EXPECT_TRUE(isBeforeInNaturalOrder("99999999999999999999998", "99999999999999999999999"));
    EXPECT_TRUE(isBeforeInNaturalOrder("9", "10000000000000000000000000000"));
}

TEST(NaturalOrder, TakesLettersWithoutRegardToCase)
{
    EXPECT_THAT(sorted({"b.jpg", "C.jpg", "A.jpg"}), testing::ElementsAre("A.jpg", "b.jpg", "C.jpg"));
}

TEST(NaturalOrder, PutsANameBeforeLongerNamesThatBeginAlike)
{
    EXPECT_THAT(sorted({"img2-1.jpg", "img2.jpg", "img2 b.jpg"}),
                testing::ElementsAre("img2.jpg", "img2 b.jpg", "img2-1.jpg"));
}

TEST(NaturalOrder, LooksAtTheExtensionLast)
{
    EXPECT_THAT(sorted({"a.png", "b.jpg", "a.jpg"}), testing::ElementsAre("a.jpg", "a.png", "b.jpg"));
}

TEST(NaturalOrder, GivesNamesThatDifferOnlyInZerosOrCaseAFixedOrder)
{
    EXPECT_NE(isBeforeInNaturalOrder("img01.jpg", "img1.jpg"), isBeforeInNaturalOrder("img1.jpg", "img01.jpg"));
    EXPECT_NE(isBeforeInNaturalOrder("IMG.jpg", "img.jpg"), isBeforeInNaturalOrder("img.jpg", "IMG.jpg"));
}

TEST(NaturalOrder, IsAStrictWeakOrderOverManyNames)
{
    const std::vector<std::string> names{"",      "1",     "01",     "001",    "a",    "A",      "a1",    "a01", "a1b",
                                         "a10",   "a.b",   "a.b1",   ".a",     ".",    "a.",     "a.jpg", "é",   "\xFF",
                                         "a\xFF", "1.2.3", "1.10.3", "1.2.10", "img-", "img- 2", "IMG-2"};
    for (const auto& a : names)
        for (const auto& b : names) {
            EXPECT_FALSE(isBeforeInNaturalOrder(a, b) && isBeforeInNaturalOrder(b, a)) << a << " " << b;
            EXPECT_TRUE(a == b || isBeforeInNaturalOrder(a, b) || isBeforeInNaturalOrder(b, a)) << a << " " << b;
            for (const auto& c : names) {
                const bool isChain = isBeforeInNaturalOrder(a, b) && isBeforeInNaturalOrder(b, c);
                EXPECT_TRUE(!isChain || isBeforeInNaturalOrder(a, c)) << a << " " << b << " " << c;
            }
        }
}

} // namespace
