#pragma once

#include "client/command/options/Arguments.h"

#include <cstdint>
#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora frame`.
struct FrameOptions {
    std::string photo;
    std::string output;
    /// As in CreateOptions.
    int64_t quality = 0;
    bool reducesBorders = false;
    bool showsFaces = false;
    Watermark watermark = Watermark::Usual;
};

/// Reads the arguments of `stillora frame`. Touches no file.
Parsed<FrameOptions> parseFrame(const std::vector<std::string>& arguments);

/// `stillora frame`: shows a photo as the frame of a movie, drawn by the code that draws movies, and saves it as a PNG
/// file. Its path goes to standard output, what was done to standard error.
/// @return the program's exit status
int runFrameCommand(const FrameOptions& options);

} // namespace stillora
