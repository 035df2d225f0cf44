#include "platform/foundation/NSDate.h"

#include <cstdlib>
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

TEST(NSDate, OfNewFilesIsNowUnlessTheEnvironmentSaysOtherwise)
{
    const auto ofNewFiles = [](const char* variable) {
        variable ? setenv("SOURCE_DATE_EPOCH", variable, 1) : unsetenv("SOURCE_DATE_EPOCH");
        const double time = NSDate::dateOfNewFiles().timeIntervalSinceReferenceDate;
        unsetenv("SOURCE_DATE_EPOCH");
        return time;
    };
    EXPECT_EQ(ofNewFiles("978307201"), 1);
    EXPECT_EQ(ofNewFiles("0"), -kTimeIntervalSince1970);
    EXPECT_EQ(ofNewFiles("253402300799"), 253402300799 - kTimeIntervalSince1970);
    for (const char* variable : {"", "yesterday", "-1", "1.5", "12 ", "253402300800", "99999999999999999999"}) {
        const double before = NSDate::date().timeIntervalSinceReferenceDate;
        EXPECT_GE(ofNewFiles(variable), before) << variable;
        const double unset = ofNewFiles(nullptr);
        EXPECT_GE(unset, before);
        EXPECT_LE(unset, NSDate::date().timeIntervalSinceReferenceDate);
    }
}
