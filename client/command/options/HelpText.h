#pragma once

#include "client/command/options/OptionTable.h"

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// Longer lines are hard to read.
inline constexpr int kHelpColumns = 80;

/// What help is written for: the terminal of standard output if it is narrower, else kHelpColumns.
int helpColumns();

/// @name Texts for a terminal of so many columns
/// @{
/// Of `stillora --help`.
std::string generalHelp(int columns = kHelpColumns);
/// Of `stillora NAME --help`.
/// @param name  a command of the table
std::string helpOf(std::string_view name, int columns = kHelpColumns);
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
