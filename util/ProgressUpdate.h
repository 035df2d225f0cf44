#pragma once

#include "platform/graphics/NSImage.h"

#include <string>

/// What a stage tells the client.
struct ProgressUpdate {
    /// Time intervals that are no estimate.
    static constexpr double kEstimateUnknown = -1;
    static constexpr double kNoEstimate = -2;

    /// A key of the application's localised strings.
    std::string title;
    /// A picture for the stage; may be null.
    platform::NSImagePtr image;
    /// Whether `progress` of `total` is a meaningful fraction.
    bool determinate = false;
    double progress = 0;
    double total = 0;
    /// Seconds that are left, or one of the negative values above.
    double timeInterval = kNoEstimate;
};
