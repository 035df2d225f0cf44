#pragma once

#include "client/command/OptionTable.h"

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// @name Texts for a terminal of 80 columns
/// @{
/// Of `stillora --help`.
std::string generalHelp();
/// Of `stillora NAME --help`.
/// @param name  a command of the table
std::string helpOf(std::string_view name);
/// @}

/// Options that the same forms of a command take.
struct OptionGroup {
    /// "Options of new and add:", in the user's language.
    std::string title;
    std::vector<const Option*> options;
};

/// A command's options, those of the fewest forms first, each once.
std::vector<OptionGroup> optionGroups(const CommandText& command);

} // namespace stillora
