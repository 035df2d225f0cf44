#pragma once

#include <stillora/Types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace stillora {

/// @name Text of unknown origin: file names may hold any bytes.
/// @{
/// At most `maxBytes` bytes of valid text, cut between characters.
std::string_view prefixOfBytes(std::string_view text, size_t maxBytes);

/// As for a terminal: bytes that are no UTF-8 by their numbers, "\\xE9", and control characters replaced by "?", so
/// that a name cannot move the cursor.
std::string printable(std::string_view text);
/// @}

/// @name Text on a terminal
/// @{

/// Columns that valid text takes; characters the locale does not know count one.
int displayWidth(std::string_view text);

/// At most so many columns; what was cut off is marked by `mark`, if that fits.
std::string cutToWidth(std::string_view text, int columns, std::string_view mark);
/// @}

/// "0:42", "12:05", "1:02:09"; whole seconds, rounded up so that the last second is shown.
std::string clockText(Seconds time);

/// "3.5 s", "2 min 40 s": for a sentence.
std::string secondsText(Seconds time);

/// "812 kB", "1.4 GB".
std::string bytesText(double bytes);

} // namespace stillora
