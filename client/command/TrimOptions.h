#pragma once

#include "client/command/Arguments.h"

#include <string>
#include <vector>

/// The command line of `stillora trim`.
struct TrimOptions {
    SoundArgument sound;
    std::string output;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora trim`. Touches no file.
Parsed<TrimOptions> parseTrim(const std::vector<std::string>& arguments);

/// Its help.
std::string trimHelp();
