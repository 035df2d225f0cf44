#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What somebody may have meant who typed a word that is none: ", did you mean NAME?", or nothing where no name is like
/// it.
/// @param prefix  stands before the name, as "--" does
std::string suggestionFor(std::string_view typed, const std::vector<std::string>& names, std::string_view prefix = "");

} // namespace stillora
