#include "platform/bytes/BoxWalker.h"

#include "tests/support/TestTags.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;
using testtags::bigEndian;
using testtags::box;

namespace {

std::string nameOf(uint32_t type)
{
    return bigEndian(type, 4);
}

std::span<const uint8_t> bytesOf(const std::string& text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// "type=content" of each box of the text, as far as the walk goes.
std::vector<std::string> boxesOf(const std::string& text)
{
    const MemoryBytes bytes(bytesOf(text));
    const BoxWalker walker(bytes);
    std::vector<std::string> found;
    walker.forEachBox(0, walker.size(), [&](const Box& each) {
        found.push_back(nameOf(each.type) + "=" +
                        text.substr(static_cast<size_t>(each.begin), static_cast<size_t>(each.size())));
    });
    return found;
}

/// A size in 64 bits, the first field being 1.
std::string largeBox(const std::string& type, uint64_t size, const std::string& content)
{
    return bigEndian(1, 4) + type + bigEndian(size, 8) + content;
}

/// Boxes inside each other; the innermost has the given content.
std::string nested(size_t depth, std::string content)
{
    for (size_t i = 0; i < depth; ++i)
        content = box("nest", content);
    return content;
}

/// How deep a walk into every box leads.
int depthOf(const BoxWalker& walker, int64_t begin, int64_t end)
{
    int deepest = 0;
    walker.forEachBox(begin, end,
                      [&](const Box& each) { deepest = std::max(deepest, 1 + depthOf(walker, each.begin, each.end)); });
    return deepest;
}

} // namespace

TEST(BoxWalker, VisitsEachBoxWithItsContent)
{
    EXPECT_THAT(boxesOf(box("ftyp", "mp42") + box("free", "") + box("\xA9nam", "x")),
                ElementsAre("ftyp=mp42", "free=", "\xA9nam=x"));
    EXPECT_THAT(boxesOf(""), IsEmpty());
}

TEST(BoxWalker, TakesASizeOfZeroForAllThatIsLeft)
{
    EXPECT_THAT(boxesOf(box("free", "a") + bigEndian(0, 4) + "mdat" + "all of it"),
                ElementsAre("free=a", "mdat=all of it"));
    EXPECT_THAT(boxesOf(bigEndian(0, 4) + "mdat"), ElementsAre("mdat="));
}

TEST(BoxWalker, TakesASizeOfOneForOneOf64Bits)
{
    EXPECT_THAT(boxesOf(largeBox("mdat", 19, "abc") + box("free", "")), ElementsAre("mdat=abc", "free="));
    EXPECT_THAT(boxesOf(largeBox("mdat", 16, "")), ElementsAre("mdat="));
    for (const uint64_t wrong : {uint64_t{0}, uint64_t{1}, uint64_t{15}, uint64_t{20}, uint64_t{1} << 32,
                                 uint64_t{INT64_MAX}, uint64_t{1} << 63, UINT64_MAX})
        EXPECT_THAT(boxesOf(largeBox("mdat", wrong, "abc")), IsEmpty()) << wrong;
    // Cut off inside the size.
    EXPECT_THAT(boxesOf(largeBox("mdat", 19, "").substr(0, 15)), IsEmpty());
}

TEST(BoxWalker, EndsAtABoxSmallerThanItsHeaderOrPastTheEnd)
{
    for (const uint32_t wrong : {2U, 7U, 12U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_THAT(boxesOf(box("free", "a") + bigEndian(wrong, 4) + "moov" + "abc"), ElementsAre("free=a")) << wrong;
    EXPECT_THAT(boxesOf(box("free", "a") + bigEndian(11, 4) + "moov" + "abc"), ElementsAre("free=a", "moov=abc"));
    // Too short for a box at all.
    EXPECT_THAT(boxesOf(box("free", "a") + "seven  "), ElementsAre("free=a"));
}

TEST(BoxWalker, TellsWhereItEnded)
{
    const std::string text = box("free", "a") + box("moov", "abc");
    const MemoryBytes whole(bytesOf(text));
    EXPECT_EQ(BoxWalker(whole).forEachBox(0, whole.size(), [](const Box&) {}), whole.size());
    const MemoryBytes cut(bytesOf(text).first(text.size() - 1));
    EXPECT_EQ(BoxWalker(cut).forEachBox(0, cut.size(), [](const Box&) {}), 9);
}

TEST(BoxWalker, KeepsABoxInsideTheOneAroundIt)
{
    // The inner box claims what follows the outer one.
    const std::string text = box("moov", bigEndian(20, 4) + "trak") + box("free", "123456789012");
    const MemoryBytes bytes(bytesOf(text));
    const BoxWalker walker(bytes);
    const auto outer = walker.boxAt(0, walker.size());
    ASSERT_TRUE(outer);
    EXPECT_FALSE(walker.boxAt(outer->begin, outer->end));
    EXPECT_TRUE(walker.boxAt(outer->begin, walker.size()));
    EXPECT_FALSE(walker.boxAt(walker.size(), outer->begin));
    // There is no room for a header, though the bytes go on.
    const std::string open = bigEndian(0, 4) + "free";
    const MemoryBytes openBytes(bytesOf(open));
    EXPECT_TRUE(BoxWalker(openBytes).boxAt(0, 8));
    EXPECT_FALSE(BoxWalker(openBytes).boxAt(0, 7));
}

TEST(BoxWalker, FindsTheFirstBoxOfAType)
{
    const std::string text = box("free", "moov") + box("moov", "first") + box("moov", "second");
    const MemoryBytes bytes(bytesOf(text));
    const BoxWalker walker(bytes);
    const auto found = walker.find(fourCharacterCode("moov"), 0, walker.size());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->begin, 20);
    EXPECT_EQ(found->size(), 5);
    EXPECT_FALSE(walker.find(fourCharacterCode("mdat"), 0, walker.size()));
    EXPECT_FALSE(walker.find(fourCharacterCode("moov"), 0, 12));
}

TEST(BoxWalker, GoesOnlySoDeep)
{
    for (const size_t depth : {size_t{BoxWalker::kMaxDepth}, size_t{BoxWalker::kMaxDepth} + 1, size_t{1000}}) {
        const std::string text = nested(depth, "");
        const MemoryBytes bytes(bytesOf(text));
        const BoxWalker walker(bytes);
        EXPECT_EQ(depthOf(walker, 0, walker.size()), BoxWalker::kMaxDepth);
        // And then again.
        EXPECT_EQ(depthOf(walker, 0, walker.size()), BoxWalker::kMaxDepth);
    }
}

TEST(BoxWalker, VisitsOnlySoManyBoxes)
{
    std::string boxes;
    for (int i = 0; i < BoxWalker::kMaxBoxes + 100; ++i)
        boxes += box("free", "");
    boxes += box("last", "");
    const MemoryBytes bytes(bytesOf(boxes));
    const BoxWalker walker(bytes);
    int count = 0;
    walker.forEachBox(0, walker.size(), [&](const Box&) { ++count; });
    EXPECT_EQ(count, BoxWalker::kMaxBoxes);
    EXPECT_FALSE(walker.find(fourCharacterCode("free"), 0, walker.size()));
    EXPECT_FALSE(BoxWalker(bytes).find(fourCharacterCode("last"), 0, walker.size()));
}

TEST(BoxWalker, StaysInsideWhateverTheBytesAre)
{
    // The same on every run; other ones with --gtest_shuffle.
    std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    const auto below = [&](size_t limit) { return static_cast<size_t>(random()) % limit; };
    for (int round = 0; round < 20000; ++round) {
        std::string text = box("moov", box("trak", nested(below(20), "12345678") + box("mdia", largeBox("a", 1, ""))) +
                                           largeBox("mdat", 16 + below(8), "1234567")) +
                           box("meta", "");
        for (size_t change = 0; change <= below(6); ++change) {
            const size_t place = below(text.size());
            switch (below(4)) {
            case 0:
                text[place] = static_cast<char>(random());
                break;
            case 1:
                text.replace(place, 4, bigEndian(below(32), 4));
                break;
            case 2:
                text.resize(place + 1);
                break;
            default:
                text.replace(place, 8, bigEndian(random(), 8));
                break;
            }
        }
        const MemoryBytes bytes(bytesOf(text));
        const BoxWalker walker(bytes);
        int depth = 0;
        const std::function<void(int64_t, int64_t)> walk = [&](int64_t begin, int64_t end) {
            int64_t last = begin;
            const int64_t ended = walker.forEachBox(begin, end, [&](const Box& each) {
                ++depth;
                ASSERT_GE(each.begin, last + 8);
                ASSERT_LE(each.begin, each.end);
                ASSERT_LE(each.end, end);
                ASSERT_LE(depth, BoxWalker::kMaxDepth);
                last = each.end;
                walk(each.begin, each.end);
                --depth;
            });
            ASSERT_EQ(ended, last);
        };
        walk(0, walker.size());
        ASSERT_EQ(depth, 0);
    }
}
