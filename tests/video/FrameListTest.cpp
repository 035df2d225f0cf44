#include "video/FrameList.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

FrameRecord record(size_t index, int64_t bytes = 0)
{
    return {nullptr, nullptr, bytes, index};
}

} // namespace

TEST(FrameList, GivesFramesByTheirIndexInWhateverOrderTheyCame)
{
    FrameList frames;
    for (const size_t index : {3u, 0u, 2u})
        frames.append(record(index, static_cast<int64_t>(index) * 10));
    EXPECT_EQ(frames.count(), 3u);
    EXPECT_TRUE(frames.contains(2));
    EXPECT_FALSE(frames.contains(1));
    const auto taken = frames.take(2);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->readBytes, 20);
    EXPECT_FALSE(frames.contains(2));
    EXPECT_FALSE(frames.take(2));
    EXPECT_EQ(frames.count(), 2u);
}

TEST(FrameList, GivesTheFirstOfTwoFramesOfOneIndex)
{
    FrameList frames;
    frames.append(record(1, 100));
    frames.append(record(1, 200));
    EXPECT_EQ(frames.take(1)->readBytes, 100);
    EXPECT_EQ(frames.take(1)->readBytes, 200);
}

TEST(FrameList, WaitsForAFrame)
{
    FrameList frames;
    EXPECT_EQ(frames.waitForAppend(0, 0), 0u);
    EXPECT_EQ(frames.waitForAppend(0, -1), 0u);
    std::jthread producer([&] { frames.append(record(5)); });
    EXPECT_EQ(frames.waitForAppend(0, 60), 1u);
    EXPECT_TRUE(frames.contains(5));
    // What happened before is not waited for.
    EXPECT_EQ(frames.waitForAppend(0, 60), 1u);
}

TEST(FrameList, MayBeFilledAndEmptiedOnManyThreads)
{
    FrameList frames;
    std::vector<std::jthread> producers;
    for (size_t t = 0; t < 3; ++t)
        producers.emplace_back([&, t] {
            for (size_t i = 0; i < 100; ++i)
                frames.append(record(3 * i + t));
        });
    uint64_t seen = 0;
    for (size_t needed = 0; needed < 300;) {
        if (frames.take(needed))
            ++needed;
        else
            seen = frames.waitForAppend(seen, 60);
    }
    EXPECT_EQ(frames.count(), 0u);
}
