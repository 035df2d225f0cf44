#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// The fault of a word that is none, and what somebody may have meant who typed it: "FAULT, did you mean NAME?"; the
/// fault alone where no name is like the word.
/// @param prefix  stands before the name, as "--" does
std::string withSuggestion(const std::string& fault, std::string_view typed, const std::vector<std::string>& names,
                           std::string_view prefix = "");

} // namespace stillora
