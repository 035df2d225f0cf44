#pragma once

#include "video/VideoStageContext.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the service was told when it was started.
struct ServiceArguments {
    /// What there is to say instead of serving.
    struct Answer {
        std::string text;
        /// An error's text is for standard error, others for standard output.
        int exitStatus = 0;
    };

    /// Nothing leaves it to the user's settings, and without these to the product.
    std::optional<bool> drawsWatermark = {};
    /// The descriptor of a list of files, where the service is to do without all others.
    std::optional<int> fileList = {};
    /// Which frames of a larger movie those of the requests are; nothing where they are whole movies.
    std::optional<MoviePart> part = {};
    /// Movies in place of the frames of a request, in their order.
    std::vector<std::string> pieces = {};
    /// A movie that some of a request's frames are copied of.
    std::optional<FrameSource> frameSource = {};
    std::optional<Answer> answer = {};

    /// @param arguments  those that follow the program's name; of two that contradict each other the last one counts
    static ServiceArguments read(const std::vector<std::string_view>& arguments);
};
