#pragma once

#include <cstdint>

namespace platform {

/// A media time: `value` / `timescale` seconds, or one of the special times that the flags tell.
struct CMTime {
    enum Flags : uint32_t {
        Valid = 1,
        HasBeenRounded = 2,
        PositiveInfinity = 4,
        NegativeInfinity = 8,
        Indefinite = 16
    };

    int64_t value = 0;
    int32_t timescale = 0;
    uint32_t flags = 0;
    int64_t epoch = 0;

    bool isValid() const { return flags & Valid; }
    bool isIndefinite() const { return isValid() && (flags & Indefinite); }
    bool isInfinite() const { return isValid() && (flags & (PositiveInfinity | NegativeInfinity)); }
    bool isNumeric() const { return isValid() && !(flags & (PositiveInfinity | NegativeInfinity | Indefinite)); }
};

inline constexpr CMTime kCMTimeInvalid{};
inline constexpr CMTime kCMTimeZero{0, 1, CMTime::Valid, 0};
inline constexpr CMTime kCMTimeIndefinite{0, 0, CMTime::Valid | CMTime::Indefinite, 0};
inline constexpr CMTime kCMTimePositiveInfinity{0, 0, CMTime::Valid | CMTime::PositiveInfinity, 0};
inline constexpr CMTime kCMTimeNegativeInfinity{0, 0, CMTime::Valid | CMTime::NegativeInfinity, 0};

CMTime CMTimeMake(int64_t value, int32_t timescale);

/// `seconds` times the scale, truncated toward zero. A scale below 1 or seconds that are no number give an invalid
/// time; a value too large halves the scale until it fits, else it is infinite.
CMTime CMTimeMakeWithSeconds(double seconds, int32_t preferredTimescale);

/// Invalid and indefinite times are not a number.
double CMTimeGetSeconds(CMTime time);

/// Rounding when a time is brought to another scale.
enum class CMTimeRoundingMethod : uint32_t {
    RoundHalfAwayFromZero = 1,
    RoundTowardZero = 2,
    RoundAwayFromZero = 3,
    QuickTime = 4,
    RoundTowardPositiveInfinity = 5,
    RoundTowardNegativeInfinity = 6,
};

/// Computed in 128 bits. Times that are no numbers stay as they are.
CMTime CMTimeConvertScale(CMTime time, int32_t newTimescale, CMTimeRoundingMethod method);

/// Epochs first, then by value; -inf < numbers < indefinite < +inf < invalid.
int CMTimeCompare(CMTime a, CMTime b);
/// In the least common multiple of the scales; invalid if one is invalid.
CMTime CMTimeAdd(CMTime a, CMTime b);
CMTime CMTimeSubtract(CMTime a, CMTime b);

/// Start and duration.
struct CMTimeRange {
    CMTime start;
    CMTime duration;
};

inline constexpr CMTimeRange kCMTimeRangeInvalid{};
inline constexpr CMTimeRange kCMTimeRangeZero{kCMTimeZero, kCMTimeZero};

CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration);
/// Compares start and duration as times: 0/44100 equals 0/1.
bool CMTimeRangeEqual(CMTimeRange a, CMTimeRange b);
/// Both valid, and the duration neither negative nor of another epoch.
bool CMTimeRangeIsValid(CMTimeRange range);
bool CMTimeRangeIsIndefinite(CMTimeRange range);
bool CMTimeRangeIsEmpty(CMTimeRange range);
CMTime CMTimeRangeGetEnd(CMTimeRange range);

} // namespace platform
