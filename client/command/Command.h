#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What runs a command of the program. What it takes and says of itself stands in the table of options.
struct Command {
    std::string_view name;
    /// Reads the arguments that follow the name, and does what they ask for or says what is wrong with them.
    /// @return the program's exit status
    int (*run)(const std::vector<std::string>& arguments);
};

/// In the order of the general help.
const std::vector<Command>& commands();

} // namespace stillora
