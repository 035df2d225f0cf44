#pragma once

#include "client/command/CreateOptions.h"
#include "client/command/FrameOptions.h"

#include <string>
#include <variant>
#include <vector>

/// Nothing is left to do but to say something: help, the version, or what is wrong with the command line.
struct CommandLineAnswer {
    std::string text;
    /// An error's text is for standard error, help for standard output.
    int exitStatus = 0;
};

/// What the program is to do.
using ParsedCommandLine = std::variant<CommandLineAnswer, CreateOptions, FrameOptions>;

/// Reads the arguments that follow the program's name. Touches no file.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments);
