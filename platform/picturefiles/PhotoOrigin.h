#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace platform {

/// What a camera writes into a photo of when, by which camera and where it was taken.
struct PhotoOrigin {
    struct Date {
        /// As the clocks stood there.
        std::chrono::local_time<std::chrono::microseconds> clock;
        /// By how much these are ahead of UTC; nothing where the photo does not tell.
        std::optional<std::chrono::minutes> offset;

        friend bool operator==(const Date&, const Date&) = default;
    };

    /// Degrees, north and east.
    struct Place {
        double latitude = 0;
        double longitude = 0;

        friend bool operator==(const Place&, const Place&) = default;
    };

    std::optional<Date> taken;
    /// Without what fills them up; empty where the photo does not tell.
    std::string make;
    std::string model;
    std::optional<Place> place;

    friend bool operator==(const PhotoOrigin&, const PhotoOrigin&) = default;
};

} // namespace platform
