#pragma once

#include "client/command/options/Arguments.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora convert`.
struct ConvertOptions {
    SoundArgument sound;
    /// Where the file is put under the sound's name, or the file itself.
    std::string output;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora convert`. Touches no file.
Parsed<ConvertOptions> parseConvert(const std::vector<std::string>& arguments);

/// `stillora convert`: saves a sound as an M4A file.
/// @return the program's exit status
int runConvertCommand(const ConvertOptions& options);

} // namespace stillora
