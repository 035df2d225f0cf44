#pragma once

#include <string>
#include <string_view>
#include <vector>

/// One command of the program. Each has files of its own: NAMEOptions reads its arguments and has its help,
/// NAMECommand does what they ask for.
struct Command {
    std::string_view name;
    /// For the list of commands; at most 59 columns.
    std::string_view summary;
    /// Reads the arguments that follow the name, and does what they ask for or says what is wrong with them.
    /// @return the program's exit status
    int (*run)(const std::vector<std::string>& arguments);
};

/// In the order of the general help.
const std::vector<Command>& commands();
