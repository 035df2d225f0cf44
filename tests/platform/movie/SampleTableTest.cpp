#include "platform/movie/SampleTable.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint32_t kTimes = fourCharacterCode("stts");
constexpr uint32_t kSync = fourCharacterCode("stss");

/// A box of 32-bit numbers.
IndexBox table(const char (&type)[5], std::initializer_list<uint32_t> numbers)
{
    IndexBox box{.type = fourCharacterCode(type), .content = {}, .children = {}};
    for (const uint32_t number : numbers)
        for (int shift = 24; shift >= 0; shift -= 8)
            box.content.push_back(static_cast<uint8_t>(number >> shift));
    return box;
}

/// Four samples of 10, 20, 30 and 40 bytes: two in the chunk at 1000, and one each in those at 500 and 5000.
IndexBox fourSamples()
{
    return {.type = fourCharacterCode("stbl"),
            .content = {},
            .children = {table("stsd", {0, 1, 0xABCD}), table("stts", {0, 2, 3, 100, 1, 7}),
                         table("stsc", {0, 2, 1, 2, 1, 2, 1, 1}), table("stsz", {0, 0, 4, 10, 20, 30, 40}),
                         table("stco", {0, 3, 1000, 500, 5000})}};
}

/// Each as "offset+size for duration", with a star where it is no sync sample.
std::vector<std::string> told(const SampleTable& samples)
{
    std::vector<std::string> lines;
    for (const auto& sample : samples.samples())
        lines.push_back(std::to_string(sample.offset) + "+" + std::to_string(sample.size) + " for " +
                        std::to_string(sample.duration) + (sample.isSync ? "" : "*"));
    return lines;
}

SampleTable read(const IndexBox& box)
{
    std::string why;
    const auto samples = SampleTable::read(box, why);
    EXPECT_TRUE(samples) << why;
    return samples.value_or(SampleTable{});
}

std::string refusalOf(const IndexBox& box)
{
    std::string why;
    EXPECT_FALSE(SampleTable::read(box, why));
    return why;
}

TEST(SampleTable, PlacesSamplesInTheirChunks)
{
    EXPECT_THAT(told(read(fourSamples())),
                ElementsAre("1000+10 for 100", "1010+20 for 100", "500+30 for 100", "5000+40 for 7"));
}

TEST(SampleTable, ReadsLongPlacesCommonSizesAndSyncSamples)
{
    IndexBox box = fourSamples();
    box.children[3] = table("stsz", {0, 25, 4});
    box.children[4] = table("co64", {0, 3, 1, 1000, 0, 500, 2, 5000});
    box.children.push_back(table("stss", {0, 2, 1, 4}));
    EXPECT_THAT(told(read(box)), ElementsAre("4294968296+25 for 100", "4294968321+25 for 100*", "500+25 for 100*",
                                             "8589939592+25 for 7"));
}

TEST(SampleTable, RepeatsLongSamplesInPartsThatLastAsLongTogether)
{
    SampleTable samples = read(fourSamples());
    std::string why;
    ASSERT_TRUE(samples.repeatLongSamples(30, why));
    EXPECT_THAT(told(samples),
                ElementsAre("1000+10 for 25", "1000+10 for 25", "1000+10 for 25", "1000+10 for 25", "1010+20 for 25",
                            "1010+20 for 25", "1010+20 for 25", "1010+20 for 25", "500+30 for 25", "500+30 for 25",
                            "500+30 for 25", "500+30 for 25", "5000+40 for 7"));
}

TEST(SampleTable, SpreadsWhatCannotBeDivided)
{
    SampleTable samples = read(fourSamples());
    std::string why;
    ASSERT_TRUE(samples.repeatLongSamples(34, why));
    const auto lines = told(samples);
    EXPECT_THAT(std::vector(lines.begin(), lines.begin() + 3),
                ElementsAre("1000+10 for 34", "1000+10 for 33", "1000+10 for 33"));
}

TEST(SampleTable, LeavesSamplesThatAreShortEnough)
{
    SampleTable samples = read(fourSamples());
    const auto before = told(samples);
    std::string why;
    ASSERT_TRUE(samples.repeatLongSamples(100, why));
    EXPECT_EQ(told(samples), before);
}

TEST(SampleTable, RepeatsNothingThatNeedsAnotherSample)
{
    IndexBox box = fourSamples();
    box.children.push_back(table("stss", {0, 2, 1, 2}));
    std::string why;
    EXPECT_FALSE(read(box).repeatLongSamples(50, why));
    EXPECT_THAT(why, HasSubstr("no key frame"));
    // Where that one is short enough, the others may be long.
    box.children[1] = table("stts", {0, 2, 2, 100, 2, 7});
    EXPECT_TRUE(read(box).repeatLongSamples(50, why));
}

TEST(SampleTable, RepeatsNoMoreThanCanBeHeld)
{
    IndexBox box = fourSamples();
    box.children[1] = table("stts", {0, 1, 4, UINT32_MAX});
    std::string why;
    EXPECT_FALSE(read(box).repeatLongSamples(1, why));
    EXPECT_THAT(why, HasSubstr("more than 4194304 samples"));
}

TEST(SampleTable, ReadsBackWhatItWrites)
{
    for (const bool isLong : {false, true})
        for (const bool hasSync : {false, true}) {
            IndexBox box = fourSamples();
            if (hasSync)
                box.children.push_back(table("stss", {0, 4, 1, 2, 3, 4}));
            SampleTable samples = read(box);
            std::string why;
            ASSERT_TRUE(samples.repeatLongSamples(30, why));
            samples.write(box, isLong);
            EXPECT_EQ(told(read(box)), told(samples));
            EXPECT_EQ(box.children[0].content, fourSamples().children[0].content) << "descriptions stay";
            EXPECT_EQ(box.child(fourCharacterCode("co64")) != nullptr, isLong);
            EXPECT_EQ(box.child(fourCharacterCode("stco")) != nullptr, !isLong);
            EXPECT_EQ(box.child(kSync) != nullptr, hasSync);
            EXPECT_EQ(box.child(kTimes)->content, table("stts", {0, 2, 12, 25, 1, 7}).content) << "runs are joined";
        }
}

TEST(SampleTable, RefusesWhatItDoesNotUnderstand)
{
    IndexBox shifted = fourSamples();
    shifted.children.push_back(table("ctts", {0, 1, 4, 0}));
    EXPECT_THAT(refusalOf(shifted), HasSubstr("\"ctts\""));

    IndexBox missing = fourSamples();
    missing.children.erase(missing.children.begin() + 1);
    EXPECT_THAT(refusalOf(missing), HasSubstr("missing"));
    IndexBox twice = fourSamples();
    twice.children.push_back(twice.children[1]);
    EXPECT_THAT(refusalOf(twice), HasSubstr("twice"));
    EXPECT_THAT(refusalOf({}), HasSubstr("missing"));
}

TEST(SampleTable, RefusesTablesThatDoNotAgree)
{
    struct Case {
        const char* name;
        size_t place;
        IndexBox box;
    };
    const Case cases[] = {
        {"times of fewer samples", 1, table("stts", {0, 1, 3, 100})},
        {"times of more samples", 1, table("stts", {0, 1, 5, 100})},
        {"times of very many samples", 1, table("stts", {0, 2, 4, 100, UINT32_MAX, 100})},
        {"fewer rows than said", 1, table("stts", {0, 3, 3, 100, 1, 7})},
        {"another version", 1, table("stts", {0x01000000, 2, 3, 100, 1, 7})},
        {"no rows", 1, table("stts", {})},
        {"chunks of fewer samples", 2, table("stsc", {0, 1, 1, 1, 1})},
        {"chunks of more samples", 2, table("stsc", {0, 1, 1, 2, 1})},
        {"chunks that begin late", 2, table("stsc", {0, 1, 2, 2, 1})},
        {"chunks that go back", 2, table("stsc", {0, 3, 1, 2, 1, 3, 1, 1, 2, 1, 1})},
        {"chunks that are not there", 2, table("stsc", {0, 2, 1, 2, 1, 9, 1, 1})},
        {"another description", 2, table("stsc", {0, 2, 1, 2, 1, 2, 1, 2})},
        {"more sizes than there are", 3, table("stsz", {0, 0, 5, 10, 20, 30, 40})},
        {"very many samples", 3, table("stsz", {0, 10, UINT32_MAX})},
        {"more places than there are", 4, table("stco", {0, 4, 1000, 500, 5000})},
    };
    for (const Case& each : cases) {
        IndexBox box = fourSamples();
        box.children[each.place] = each.box;
        EXPECT_THAT(refusalOf(box), HasSubstr("do not agree")) << each.name;
    }
    IndexBox box = fourSamples();
    box.children.push_back(table("stss", {0, 1, 5}));
    EXPECT_THAT(refusalOf(box), HasSubstr("do not agree")) << "a sync sample that is not there";
}

TEST(IndexBoxes, AreReadAndWrittenByteForByte)
{
    const IndexBox track{
        .type = fourCharacterCode("trak"),
        .content = {},
        .children = {table("tkhd", {1, 2, 3}),
                     {.type = fourCharacterCode("mdia"), .content = {}, .children = {table("mdhd", {4})}}}};
    std::vector<uint8_t> bytes;
    track.appendTo(bytes);
    EXPECT_EQ(bytes.size(), track.size());
    const auto boxes = readIndexBoxes(bytes);
    ASSERT_TRUE(boxes);
    ASSERT_EQ(boxes->size(), 1u);
    const IndexBox* const media = boxes->at(0).child(fourCharacterCode("mdia"));
    ASSERT_TRUE(media);
    EXPECT_THAT(media->child(fourCharacterCode("mdhd"))->content, ElementsAre(0, 0, 0, 4));
    std::vector<uint8_t> again;
    boxes->at(0).appendTo(again);
    EXPECT_EQ(again, bytes);
}

TEST(IndexBoxes, AreRefusedWhereTheyAreBroken)
{
    std::vector<uint8_t> bytes;
    table("tkhd", {1, 2, 3}).appendTo(bytes);
    for (size_t length = 1; length < bytes.size(); ++length)
        EXPECT_FALSE(readIndexBoxes(std::span(bytes).first(length))) << length;
    // One in the other without end.
    std::vector<uint8_t> deep;
    for (uint32_t left = 200; left > 0; --left)
        for (const uint32_t number : {8 * left, fourCharacterCode("trak")})
            for (int shift = 24; shift >= 0; shift -= 8)
                deep.push_back(static_cast<uint8_t>(number >> shift));
    EXPECT_FALSE(readIndexBoxes(deep));
    const auto nothing = readIndexBoxes({});
    ASSERT_TRUE(nothing);
    EXPECT_THAT(*nothing, IsEmpty());
}

} // namespace
} // namespace platform
