#include "platform/media/CMTime.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace platform {
namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
// A 64-bit value times a 32-bit scale needs more than 64 bits.
using Wide = __int128;
#pragma GCC diagnostic pop

constexpr int32_t kMaxTimescale = std::numeric_limits<int32_t>::max();

struct Rounded {
    Wide value = 0;
    bool exact = true;
};

/// `numerator` / `denominator`, which is positive.
Rounded divide(Wide numerator, Wide denominator, CMTimeRoundingMethod method)
{
    const Wide quotient = numerator / denominator;
    const Wide remainder = numerator % denominator;
    if (remainder == 0)
        return {quotient, true};
    const Wide away = numerator < 0 ? quotient - 1 : quotient + 1;
    switch (method) {
    case CMTimeRoundingMethod::RoundHalfAwayFromZero:
        return {(remainder < 0 ? -remainder : remainder) * 2 >= denominator ? away : quotient, false};
    case CMTimeRoundingMethod::RoundAwayFromZero:
        return {away, false};
    case CMTimeRoundingMethod::RoundTowardPositiveInfinity:
        return {numerator > 0 ? away : quotient, false};
    case CMTimeRoundingMethod::RoundTowardNegativeInfinity:
        return {numerator < 0 ? away : quotient, false};
    case CMTimeRoundingMethod::RoundTowardZero:
    case CMTimeRoundingMethod::QuickTime:
        break;
    }
    return {quotient, false};
}

bool fits(Wide value)
{
    return value >= std::numeric_limits<int64_t>::min() && value <= std::numeric_limits<int64_t>::max();
}

CMTime infinity(bool positive)
{
    return positive ? kCMTimePositiveInfinity : kCMTimeNegativeInfinity;
}

CMTime withEpoch(CMTime time, int64_t epoch)
{
    time.epoch = epoch;
    return time;
}

/// A numeric time of `numerator` / `denominator` seconds at `timescale`, which is halved until the value fits.
CMTime timeFromFraction(Wide numerator, Wide denominator, int32_t timescale, int64_t epoch, bool alreadyRounded)
{
    for (; timescale > 0; timescale /= 2) {
        const Rounded rounded = divide(numerator * timescale, denominator, CMTimeRoundingMethod::RoundHalfAwayFromZero);
        if (!fits(rounded.value))
            continue;
        const uint32_t flags =
            CMTime::Valid | (rounded.exact && !alreadyRounded ? 0U : uint32_t{CMTime::HasBeenRounded});
        return {static_cast<int64_t>(rounded.value), timescale, flags, epoch};
    }
    return withEpoch(infinity(numerator > 0), epoch);
}

/// `a` + `sign` * `b`; both numeric.
CMTime addNumeric(CMTime a, CMTime b, int sign, int64_t epoch)
{
    const bool rounded = (a.flags | b.flags) & CMTime::HasBeenRounded;
    const Wide commonScale = std::lcm<int64_t>(a.timescale, b.timescale);
    const Wide sum = Wide{a.value} * (commonScale / a.timescale) + Wide{sign} * b.value * (commonScale / b.timescale);
    const int32_t scale = commonScale > kMaxTimescale ? kMaxTimescale : static_cast<int32_t>(commonScale);
    if (scale == commonScale && fits(sum))
        return {static_cast<int64_t>(sum), scale, CMTime::Valid | (rounded ? uint32_t{CMTime::HasBeenRounded} : 0U),
                epoch};

    // At most 95 bits of sum and 31 of scale.
    return timeFromFraction(sum, commonScale, scale, epoch, rounded);
}

/// Infinite and indefinite operands of a sum; both valid.
CMTime addSpecial(CMTime a, CMTime b)
{
    if (a.isIndefinite() || b.isIndefinite())
        return kCMTimeIndefinite;
    if (a.isInfinite() && b.isInfinite() && a.flags != b.flags)
        return kCMTimeInvalid;
    const CMTime& endless = a.isInfinite() ? a : b;
    return infinity(endless.flags & CMTime::PositiveInfinity);
}

CMTime negated(CMTime time)
{
    if (!time.isInfinite())
        return time;
    return withEpoch(infinity(time.flags & CMTime::NegativeInfinity), time.epoch);
}

/// Place in the order of kinds: -inf < numbers < indefinite < +inf < invalid.
int kindOf(CMTime time)
{
    if (!time.isValid())
        return 4;
    if (time.flags & CMTime::PositiveInfinity)
        return 3;
    if (time.flags & CMTime::Indefinite)
        return 2;
    if (time.flags & CMTime::NegativeInfinity)
        return 0;
    return 1;
}

} // namespace

CMTime CMTimeMake(int64_t value, int32_t timescale)
{
    if (timescale <= 0)
        return kCMTimeInvalid;
    return {value, timescale, CMTime::Valid, 0};
}

CMTime CMTimeMakeWithSeconds(double seconds, int32_t preferredTimescale)
{
    if (preferredTimescale <= 0 || std::isnan(seconds))
        return kCMTimeInvalid;
    if (std::isinf(seconds))
        return infinity(seconds > 0);

    // 2^63 is a double; the largest 64-bit value is not.
    constexpr double kLimit = 9223372036854775808.0;
    for (int32_t timescale = preferredTimescale; timescale > 0; timescale /= 2) {
        const double product = seconds * timescale;
        const double whole = std::trunc(product);
        if (whole >= kLimit || whole < -kLimit)
            continue;
        const bool exact = whole == product && timescale == preferredTimescale;
        return {static_cast<int64_t>(whole), timescale, CMTime::Valid | (exact ? 0U : uint32_t{CMTime::HasBeenRounded}),
                0};
    }
    return infinity(seconds > 0);
}

double CMTimeGetSeconds(CMTime time)
{
    if (!time.isValid() || time.isIndefinite())
        return std::numeric_limits<double>::quiet_NaN();
    if (time.isInfinite())
        return time.flags & CMTime::PositiveInfinity ? std::numeric_limits<double>::infinity()
                                                     : -std::numeric_limits<double>::infinity();
    return static_cast<double>(time.value) / time.timescale;
}

CMTime CMTimeConvertScale(CMTime time, int32_t newTimescale, CMTimeRoundingMethod method)
{
    if (!time.isNumeric())
        return time;
    if (newTimescale <= 0 || time.timescale <= 0)
        return kCMTimeInvalid;

    const bool quickTime = method == CMTimeRoundingMethod::QuickTime;
    if (quickTime)
        method = newTimescale < time.timescale ? CMTimeRoundingMethod::RoundTowardZero
                                               : CMTimeRoundingMethod::RoundAwayFromZero;
    Rounded rounded = divide(Wide{time.value} * newTimescale, time.timescale, method);
    if (quickTime && time.value < 0 && rounded.value == 0)
        rounded.value = -1;
    if (!fits(rounded.value))
        return withEpoch(infinity(time.value > 0), time.epoch);
    return {static_cast<int64_t>(rounded.value), newTimescale,
            time.flags | (rounded.exact ? 0U : uint32_t{CMTime::HasBeenRounded}), time.epoch};
}

int CMTimeCompare(CMTime a, CMTime b)
{
    const int kindA = kindOf(a);
    const int kindB = kindOf(b);
    if (kindA != kindB)
        return kindA < kindB ? -1 : 1;
    if (!a.isNumeric())
        return 0;
    if (a.epoch != b.epoch)
        return a.epoch < b.epoch ? -1 : 1;
    const Wide left = Wide{a.value} * b.timescale;
    const Wide right = Wide{b.value} * a.timescale;
    if (left == right)
        return 0;
    return left < right ? -1 : 1;
}

CMTime CMTimeAdd(CMTime a, CMTime b)
{
    if (!a.isValid() || !b.isValid())
        return kCMTimeInvalid;
    if (!a.isNumeric() || !b.isNumeric())
        return addSpecial(a, b);
    // Durations have epoch 0; times of two different epochs have no sum.
    if (a.epoch != b.epoch && a.epoch != 0 && b.epoch != 0)
        return kCMTimeInvalid;
    return addNumeric(a, b, 1, a.epoch != 0 ? a.epoch : b.epoch);
}

CMTime CMTimeSubtract(CMTime a, CMTime b)
{
    if (!a.isValid() || !b.isValid())
        return kCMTimeInvalid;
    if (!a.isNumeric() || !b.isNumeric())
        return addSpecial(a, negated(b));
    // The distance of two times of one epoch is a duration.
    if (a.epoch == b.epoch)
        return addNumeric(a, b, -1, 0);
    if (b.epoch == 0)
        return addNumeric(a, b, -1, a.epoch);
    return kCMTimeInvalid;
}

CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration)
{
    return {start, duration};
}

bool CMTimeRangeEqual(CMTimeRange a, CMTimeRange b)
{
    return CMTimeCompare(a.start, b.start) == 0 && CMTimeCompare(a.duration, b.duration) == 0;
}

bool CMTimeRangeIsValid(CMTimeRange range)
{
    return range.start.isValid() && range.duration.isValid() && range.duration.epoch == 0 && range.duration.value >= 0;
}

bool CMTimeRangeIsIndefinite(CMTimeRange range)
{
    return CMTimeRangeIsValid(range) && (range.start.isIndefinite() || range.duration.isIndefinite());
}

bool CMTimeRangeIsEmpty(CMTimeRange range)
{
    return CMTimeRangeIsValid(range) && CMTimeCompare(range.duration, kCMTimeZero) == 0;
}

CMTime CMTimeRangeGetEnd(CMTimeRange range)
{
    return CMTimeAdd(range.start, range.duration);
}

} // namespace platform
