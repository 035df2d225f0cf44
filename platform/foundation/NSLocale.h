#pragma once

#include <string>
#include <vector>

namespace platform {

/// The user's languages as gettext orders them, the wished-for one first ("de_AT", then "de"): the one that was chosen
/// by `setPreferredLanguage`, those of `LANGUAGE`, then the one of `LC_ALL`, `LC_MESSAGES` or `LANG`, whichever is set
/// first. English is always last, as that is what the texts were written in.
std::vector<std::string> preferredLanguages();

/// Puts a language before those of the environment, for a program with a choice of its own. Called at start, before
/// other threads run and before texts are looked up.
/// @param language  "de"; empty for none
void setPreferredLanguage(std::string language);

} // namespace platform
