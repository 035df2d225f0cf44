#pragma once

namespace platform {

/// A point in time: seconds since 2001-01-01 00:00:00 UTC.
struct NSDate {
    double timeIntervalSinceReferenceDate = 0;

    /// Now, by the system's clock.
    static NSDate date();
    /// What a new file tells of when it was made: now, or the second that the environment variable SOURCE_DATE_EPOCH
    /// names, so that the same input gives the same file.
    static NSDate dateOfNewFiles();

    friend bool operator==(const NSDate&, const NSDate&) = default;
};

/// Seconds between the UNIX epoch and the reference date.
inline constexpr double kTimeIntervalSince1970 = 978307200.0;

} // namespace platform
