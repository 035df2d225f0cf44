#include "client/batch/JobGauge.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

constexpr int64_t kGigabyte = int64_t{1} << 30;
constexpr JobGauge::Measure kIdle{.idle = 0.5, .availableBytes = 8 * kGigabyte, .peakBytes = kGigabyte};

} // namespace

TEST(JobGauge, AddsJobsAsLongAsProcessorsAreIdle)
{
    JobGauge gauge(std::nullopt, 4);
    EXPECT_EQ(gauge.allowed(), 1);
    gauge.measured(kIdle, 1);
    EXPECT_EQ(gauge.allowed(), 2);
    gauge.measured({.idle = 0.05, .availableBytes = 8 * kGigabyte, .peakBytes = kGigabyte}, 2);
    EXPECT_EQ(gauge.allowed(), 2);
}

TEST(JobGauge, AddsNoneBeforeThoseThatMayAreAtWork)
{
    JobGauge gauge(std::nullopt, 4);
    gauge.measured(kIdle, 0);
    EXPECT_EQ(gauge.allowed(), 1);
}

TEST(JobGauge, NeverHasMoreThanTwoForAProcessor)
{
    JobGauge gauge(std::nullopt, 2);
    for (int i = 0; i < 20; ++i)
        gauge.measured(kIdle, gauge.allowed());
    EXPECT_EQ(gauge.allowed(), 4);
}

TEST(JobGauge, AddsNoneThatMemoryHasNoRoomForAndTakesOneAwayWhereItRunsOut)
{
    JobGauge gauge(std::nullopt, 4);
    gauge.measured(kIdle, 1);
    gauge.measured({.idle = 0.5, .availableBytes = kGigabyte, .peakBytes = kGigabyte}, 2);
    EXPECT_EQ(gauge.allowed(), 2);
    for (int i = 0; i < 3; ++i)
        gauge.measured({.idle = 0.5, .availableBytes = kGigabyte / 4, .peakBytes = kGigabyte}, 2);
    EXPECT_EQ(gauge.allowed(), 1);
}

TEST(JobGauge, KeepsToWhatTheUserWants)
{
    JobGauge gauge(3, 16);
    gauge.measured(kIdle, 3);
    gauge.measured({.idle = 0, .availableBytes = 1, .peakBytes = kGigabyte}, 3);
    EXPECT_EQ(gauge.allowed(), 3);
}
