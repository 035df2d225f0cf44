#include "client/batch/PeakMemory.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace stillora;

namespace {

int64_t bytesInText(const std::string& text)
{
    std::istringstream lines(text);
    return bytesIn(lines, "MemAvailable");
}

} // namespace

TEST(PeakMemory, ReadsTheTablesOfTheSystem)
{
    EXPECT_EQ(bytesInText("MemTotal:       16 kB\nMemAvailable:\t   12 kB\nMemFree: 3 kB\n"), 12 * 1024);
    EXPECT_GT(availableBytes(), 0);
}

TEST(PeakMemory, KnowsNothingWhereNothingSensibleStands)
{
    for (const char* text : {"", "MemAvailable", "MemAvailable:", "MemAvailable: x kB", "MemAvailableToo: 5 kB",
                             "MemAvailable: -5 kB", "MemAvailable: 99999999999999999999 kB"})
        EXPECT_EQ(bytesInText(text), 0) << text;
    EXPECT_EQ(bytesInText("MemAvailable: 9223372036854775807 kB"), INT64_MAX / 1024 * 1024);
}
