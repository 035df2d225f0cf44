#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// @name Texts of tags as UTF-8: up to the first NUL, at most 64 kB; what is no character becomes U+FFFD.
/// @{
std::string textFromLatin1(std::span<const uint8_t> bytes);
std::string textFromUTF8(std::span<const uint8_t> bytes);
std::string textFromUTF16BigEndian(std::span<const uint8_t> bytes);
/// In the order that its mark tells; without one in the order that looks more like text.
std::string textFromMarkedUTF16(std::span<const uint8_t> bytes);
std::string textFromMacRoman(std::span<const uint8_t> bytes);

/// UTF-8 where the bytes are, else what `fallback` makes of them: for tags that do not tell.
std::string textFromUTF8Or(std::string (*fallback)(std::span<const uint8_t>), std::span<const uint8_t> bytes);
/// @}

} // namespace platform
