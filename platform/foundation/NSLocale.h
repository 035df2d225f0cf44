#pragma once

#include <string>
#include <vector>

namespace platform {

/// The user's languages as gettext orders them, the wished-for one first ("de_AT", then "de"): those of `LANGUAGE`,
/// then the one of `LC_ALL`, `LC_MESSAGES` or `LANG`, whichever is set first. English is always last, as that is what
/// the texts were written in.
std::vector<std::string> preferredLanguages();

} // namespace platform
