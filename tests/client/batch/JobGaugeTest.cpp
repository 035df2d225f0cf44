#include "client/batch/JobGauge.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace stillora;

namespace {

constexpr int64_t kGigabyte = int64_t{1} << 30;
constexpr JobGauge::Measure kIdle{.idle = 0.5, .availableBytes = 8 * kGigabyte, .peakBytes = kGigabyte};

/// Of the first two processors.
double shareIn(IdleTime& time, const std::string& text)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(0, &processors);
    CPU_SET(1, &processors);
    std::istringstream lines(text);
    return time.share(lines, processors);
}

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

TEST(IdleTime, IsOfTheProcessorsThatMayBeUsed)
{
    IdleTime time;
    EXPECT_EQ(shareIn(time, "cpu 9 9 9 9 9\ncpu0 10 0 0 10 0\ncpu1 10 0 0 10 0\ncpu2 0 0 0 0 0\n"), 0);
    EXPECT_EQ(shareIn(time, "cpu 9 9 9 9 9\ncpu0 20 0 0 10 0\ncpu1 10 0 0 30 10\ncpu2 0 0 0 9999 0\n"), 0.75);
}

TEST(IdleTime, IsNoneWhereTheSystemTellsNothingSensible)
{
    for (const char* text :
         {"", "cpu", "cpux 1 2 3 4", "cpu99999999999999999999 1 2 3 4 5", "cpu0", "cpu0 9 0 0 9 0", "cpu1023 1"}) {
        IdleTime time;
        (void)shareIn(time, "cpu0 10 0 0 10 0\n");
        EXPECT_EQ(shareIn(time, text), 0) << text;
    }
}
