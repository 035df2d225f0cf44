#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// @name Bytes as one number; of more than eight, the last eight that were taken count
/// @{
inline uint64_t bigEndianNumber(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

inline uint64_t littleEndianNumber(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i)
        value = value << 8 | bytes[i - 1];
    return value;
}
/// @}

/// @name Numbers inside bytes of a file; nothing where they reach past the end
/// @{
template <typename Number>
std::optional<Number> bigEndian(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Number))
        return std::nullopt;
    return static_cast<Number>(bigEndianNumber(bytes.subspan(offset, sizeof(Number))));
}

template <typename Number>
std::optional<Number> littleEndian(std::span<const uint8_t> bytes, size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Number))
        return std::nullopt;
    return static_cast<Number>(littleEndianNumber(bytes.subspan(offset, sizeof(Number))));
}

inline std::optional<uint16_t> bigEndian16(std::span<const uint8_t> bytes, size_t offset)
{
    return bigEndian<uint16_t>(bytes, offset);
}

inline std::optional<uint32_t> bigEndian32(std::span<const uint8_t> bytes, size_t offset)
{
    return bigEndian<uint32_t>(bytes, offset);
}

inline std::optional<uint64_t> bigEndian64(std::span<const uint8_t> bytes, size_t offset)
{
    return bigEndian<uint64_t>(bytes, offset);
}

inline std::optional<uint16_t> littleEndian16(std::span<const uint8_t> bytes, size_t offset)
{
    return littleEndian<uint16_t>(bytes, offset);
}

inline std::optional<uint32_t> littleEndian32(std::span<const uint8_t> bytes, size_t offset)
{
    return littleEndian<uint32_t>(bytes, offset);
}

inline std::optional<uint64_t> littleEndian64(std::span<const uint8_t> bytes, size_t offset)
{
    return littleEndian<uint64_t>(bytes, offset);
}
/// @}

} // namespace platform
