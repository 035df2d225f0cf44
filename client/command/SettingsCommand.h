#pragma once

#include <string>
#include <vector>

namespace stillora {

/// `stillora set KEY [VALUE]`: keeps what the user chooses for all movies, or forgets it.
/// @param arguments  those that follow the command's name
/// @return the program's exit status
int runSetCommand(const std::vector<std::string>& arguments);

/// `stillora settings`: lists what is kept.
/// @param arguments  those that follow the command's name
/// @return the program's exit status
int runSettingsCommand(const std::vector<std::string>& arguments);

} // namespace stillora
