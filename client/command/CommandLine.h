#pragma once

#include "client/command/Command.h"
#include "client/command/options/Arguments.h"

#include <string>
#include <variant>
#include <vector>

namespace stillora {

/// A command to be run.
struct CommandCall {
    const Command* command = nullptr;
    /// Those that follow its name.
    std::vector<std::string> arguments;
};

/// Reads the arguments that follow the program's name, as far as they are the same for every command. Touches no file.
Parsed<CommandCall> parseCommandLine(const std::vector<std::string>& arguments);

} // namespace stillora
