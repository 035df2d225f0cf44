#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// Leading white space is skipped, then the longest number counts; no hex, no "inf", no "nan", no locale. Text that is
/// no number is 0; overflow is +-HUGE_VAL.
double doubleValue(std::string_view text);

/// Leading white space is skipped, then a sign and the digits count; text that is no number is 0, and what is too large
/// is the limit.
int64_t integerValue(std::string_view text);

/// Length in UTF-16 code units; bytes that are not UTF-8 count as one each.
size_t lengthInUTF16(std::string_view text);

/// The text with every byte that is not part of well-formed UTF-8 replaced by U+FFFD.
std::string stringByReplacingInvalidUTF8(std::string_view text);
bool isValidUTF8(std::string_view text);

/// The text with the letters A to Z in lower case; other bytes stay, whatever the locale.
std::string lowercaseASCII(std::string_view text);

/// "%f" in the C locale: six decimals.
std::string stringWithSixDecimals(double value);

} // namespace platform
