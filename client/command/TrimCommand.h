#pragma once

#include "client/command/options/Arguments.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora trim`.
struct TrimOptions {
    SoundArgument sound;
    std::string output;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora trim`. Touches no file.
Parsed<TrimOptions> parseTrim(const std::vector<std::string>& arguments);

/// `stillora trim`: cuts a part out of a sound without encoding it anew.
/// @return the program's exit status
int runTrimCommand(const TrimOptions& options);

} // namespace stillora
