#pragma once

#include <cstdint>
#include <string>

/// The command line of `stillora frame`.
struct FrameOptions {
    std::string photo;
    std::string output;
    /// As in CreateOptions.
    int64_t quality = 0;
    bool reducesBorders = false;
    bool showsFaces = false;
};
