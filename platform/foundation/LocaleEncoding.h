#pragma once

#include <string>
#include <string_view>

namespace platform {

/// @name Text for a terminal, in the charset of the locale (`LC_CTYPE`)
/// What the charset lacks is written otherwise: plain quotes and blanks, letters without their accents, "ae" for "ä",
/// and what has no such form by its number, "\u{65E5}". In UTF-8 everything stays as it is. Any thread.
/// @{

/// The text as it will be seen, still in UTF-8: for measuring it.
/// @param text  valid UTF-8
std::string representableInLocale(std::string_view text);

/// The bytes to be written.
/// @param text  as above
std::string encodedForLocale(std::string_view text);
/// @}

} // namespace platform
