#include "audio/WaveFormColumns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

/// The level of one sample, as it is defined.
double levelOf(int32_t sample)
{
    const float amplitude = std::abs(static_cast<float>(sample));
    return std::clamp(20 * std::log10(static_cast<double>(amplitude) * 4.656613e-10), -25.0, 0.0);
}

/// The columns by one logarithm for each sample.
std::vector<float> slowColumns(const std::vector<int32_t>& samples, size_t samplesPerColumn)
{
    std::vector<float> values;
    for (size_t start = 0; start + samplesPerColumn <= samples.size(); start += samplesPerColumn) {
        double sum = 0;
        for (size_t i = 0; i < samplesPerColumn; ++i)
            sum += levelOf(samples[start + i]);
        values.push_back(static_cast<float>(sum / static_cast<double>(samplesPerColumn)));
    }
    return values;
}

std::vector<float> columnsOf(const std::vector<int32_t>& samples, size_t samplesPerColumn, size_t atOnce = SIZE_MAX)
{
    WaveFormColumns columns(samplesPerColumn);
    for (size_t i = 0; i < samples.size(); i += std::min(atOnce, samples.size() - i))
        columns.add(std::span(samples).subspan(i, std::min(atOnce, samples.size() - i)));
    return columns.values();
}

/// Samples of every size: noise below a level that goes up and down. The same on every run.
std::vector<int32_t> makeNoise(size_t count)
{
    std::vector<int32_t> samples(count);
    uint32_t state = 7;
    for (size_t i = 0; i < count; ++i) {
        state = state * 1664525U + 1013904223U;
        samples[i] = static_cast<int32_t>(state) >> (i / 1000 % 9);
    }
    return samples;
}

TEST(WaveFormColumns, ValuesAreThoseOfOneLogarithmForEachSample)
{
    const auto samples = makeNoise(100000);
    for (const size_t perColumn : {1U, 2U, 7U, 44U, 127U, 128U, 129U, 1000U, 4999U, 100000U}) {
        SCOPED_TRACE(perColumn);
        const auto slow = slowColumns(samples, perColumn);
        const auto quick = columnsOf(samples, perColumn);
        ASSERT_EQ(quick.size(), slow.size());
        // What single precision tells apart at -25.
        for (size_t i = 0; i < slow.size(); ++i)
            ASSERT_NEAR(quick[i], slow[i], 2e-6) << i;
    }
}

TEST(WaveFormColumns, HowTheSamplesComeDoesNotMatter)
{
    const auto samples = makeNoise(5000);
    for (const size_t perColumn : {3U, 44U, 300U, 1111U})
        for (const size_t atOnce : {1U, 5U, 127U, 128U, 1024U})
            EXPECT_EQ(columnsOf(samples, perColumn, atOnce), columnsOf(samples, perColumn))
                << perColumn << ", " << atOnce;
}

TEST(WaveFormColumns, WhatFollowsGoesOnFromAFullColumn)
{
    const auto samples = makeNoise(5000);
    for (const size_t perColumn : {1U, 44U, 300U}) {
        for (const size_t before : {size_t{0}, perColumn, 7 * perColumn}) {
            WaveFormColumns columns(perColumn);
            columns.add(std::span(samples).first(before));
            WaveFormColumns next(perColumn);
            // Its last column waits for the samples that come then.
            next.add(std::span(samples).subspan(before, 2007));
            ASSERT_TRUE(columns.append(next));
            columns.add(std::span(samples).subspan(before + 2007));
            EXPECT_EQ(columns.values(), columnsOf(samples, perColumn)) << perColumn << ", " << before;
            EXPECT_EQ(columns.largest(), std::ranges::max(columns.values()));
        }
    }
}

TEST(WaveFormColumns, NothingFollowsAColumnThatIsNotFull)
{
    WaveFormColumns columns(10);
    columns.add(std::vector<int32_t>(11));
    EXPECT_FALSE(columns.append(WaveFormColumns(10)));
    EXPECT_EQ(columns.values().size(), 1U);
}

TEST(WaveFormColumns, SilenceIsExactlyTheQuietest)
{
    WaveFormColumns columns(1000);
    columns.add(std::vector<int32_t>(3500));
    EXPECT_EQ(columns.values(), std::vector<float>(3, -25.0F));
    EXPECT_EQ(columns.largest(), -25.0F);
}

TEST(WaveFormColumns, FullScaleIsExactlyZero)
{
    WaveFormColumns columns(1000);
    std::vector<int32_t> samples(3000, INT32_MAX);
    std::fill_n(samples.begin() + 1000, 1000, INT32_MIN);
    samples[2500] = -INT32_MAX;
    columns.add(samples);
    EXPECT_EQ(columns.values(), std::vector<float>(3, 0.0F));
    EXPECT_EQ(columns.largest(), 0.0F);
}

TEST(WaveFormColumns, LevelsAreHeldAtBothEnds)
{
    // -25 dB is 120761873 of 2^31.
    for (const int32_t hardlyHeard : {0, 1, -1, 1000, 120761000, -120761000})
        EXPECT_EQ(columnsOf({hardlyHeard}, 1), std::vector<float>{-25.0F}) << hardlyHeard;
    EXPECT_GT(columnsOf({120770000}, 1)[0], -25.0F);
    EXPECT_NEAR(columnsOf({120770000}, 1)[0], -25.0F, 1e-3);
    EXPECT_NEAR(columnsOf({1 << 30}, 1)[0], -6.0206, 1e-5);
    EXPECT_NEAR(columnsOf({-(1 << 30)}, 1)[0], -6.0206, 1e-5);
    // The mean of levels, not the level of the mean.
    EXPECT_NEAR(columnsOf({1 << 30, 0}, 2)[0], (-6.0206 - 25) / 2, 1e-5);
}

TEST(WaveFormColumns, SamplesThatAreLeftOverFormNoColumn)
{
    // 4410 samples on 100 columns, then 50.
    EXPECT_EQ(columnsOf(makeNoise(4410), 4410 / 100).size(), 100U);
    EXPECT_EQ(columnsOf(makeNoise(50), 50 / 100).size(), 50U);
    EXPECT_TRUE(columnsOf(makeNoise(43), 44).empty());
    EXPECT_TRUE(columnsOf({}, 1).empty());
}

TEST(WaveFormColumns, ColumnsAreCountedInSinglePrecision)
{
    constexpr uint64_t kHighest = 1U << 24;
    const std::vector<int32_t> block(1U << 20, 1 << 30);
    // The number of samples a column has, and after how many it is full; 0: never.
    const struct {
        uint64_t asked;
        uint64_t full;
    } rows[] = {{kHighest - 1, kHighest - 1}, {kHighest, kHighest}, {kHighest + 1, kHighest}, {kHighest + 2, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.asked);
        WaveFormColumns columns(row.asked);
        for (size_t i = 0; i < 15; ++i)
            columns.add(block);
        columns.add(std::span(block).first(block.size() - 2));
        EXPECT_TRUE(columns.values().empty());
        columns.add(std::span(block).first(1));
        EXPECT_EQ(columns.values().size(), row.full == kHighest - 1 ? 1U : 0U);
        columns.add(std::span(block).first(1));
        EXPECT_EQ(columns.values().size(), row.full == 0 ? 0U : 1U);
        columns.add(block);
        EXPECT_EQ(columns.values().size(), row.full == 0 ? 0U : 1U);
        for (const float value : columns.values())
            EXPECT_NEAR(value, -6.0206, 1e-5);
    }
}

} // namespace
