#pragma once

#include "client/command/Arguments.h"

#include <string>
#include <vector>

/// The command line of `stillora convert`.
struct ConvertOptions {
    SoundArgument sound;
    std::string folder;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora convert`. Touches no file.
Parsed<ConvertOptions> parseConvert(const std::vector<std::string>& arguments);

/// Its help.
std::string convertHelp();
