#include "platform/foundation/NSDate.h"

#include <ctime>
#include <gtest/gtest.h>

using namespace platform;

TEST(NSDate, CountsFromTheYear2001)
{
    tm reference{};
    reference.tm_year = 2001 - 1900;
    reference.tm_mday = 1;
    EXPECT_EQ(static_cast<double>(timegm(&reference)), kTimeIntervalSince1970);
}

TEST(NSDate, IsNowByTheSystemsClock)
{
    const auto before = static_cast<double>(time(nullptr));
    const double now = NSDate::date().timeIntervalSinceReferenceDate + kTimeIntervalSince1970;
    const auto after = static_cast<double>(time(nullptr));
    // time() counts whole seconds by a clock that ticks a few milliseconds apart.
    EXPECT_GE(now, before - 0.1);
    EXPECT_LE(now, after + 1.1);
}
