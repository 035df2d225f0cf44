#include "util/MORPalvineCommons.h"

#include "platform/dispatch/Lock.h"
#include "platform/foundation/NSDateComponentsFormatter.h"
#include "platform/foundation/NSString.h"

#include <array>
#include <cstdio>
#include <limits>
#include <string_view>

using platform::NSDateComponentsFormatter;

namespace {

/// Rounded as "%.0f" does it; NaN and infinity become what their texts are as numbers.
int64_t wholeSeconds(double timeInterval)
{
    // Room for the largest number's digits, and its sign.
    std::array<char, std::numeric_limits<double>::max_exponent10 + 4> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.0f", timeInterval);
    return platform::integerValue(std::string_view(text.data(), static_cast<size_t>(length)));
}

} // namespace

std::string MORPalvineCommons::soundtrackDurationStringForTimeInterval(double timeInterval)
{
    static platform::Lock lock;
    static NSDateComponentsFormatter formatter;
    const platform::LockGuard guard(lock);
    formatter.setAllowedUnits(platform::kNSCalendarUnitMinute | platform::kNSCalendarUnitSecond);
    formatter.setUnitsStyle(NSDateComponentsFormatter::UnitsStyle::Full);
    return formatter.stringFromSeconds(wholeSeconds(timeInterval)).value_or("");
}
