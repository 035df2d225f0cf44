#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// @name Numbers inside bytes of a file; nothing where they reach past the end.
/// @{
inline std::optional<uint16_t> bigEndian16(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < 2)
        return std::nullopt;
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

inline std::optional<uint32_t> bigEndian32(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < 4)
        return std::nullopt;
    return uint32_t{bytes[offset]} << 24 | uint32_t{bytes[offset + 1]} << 16 | uint32_t{bytes[offset + 2]} << 8 |
           bytes[offset + 3];
}

inline std::optional<uint16_t> littleEndian16(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < 2)
        return std::nullopt;
    return static_cast<uint16_t>(bytes[offset + 1] << 8 | bytes[offset]);
}

inline std::optional<uint32_t> littleEndian32(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < 4)
        return std::nullopt;
    return uint32_t{bytes[offset + 3]} << 24 | uint32_t{bytes[offset + 2]} << 16 | uint32_t{bytes[offset + 1]} << 8 |
           bytes[offset];
}
/// @}

} // namespace platform
