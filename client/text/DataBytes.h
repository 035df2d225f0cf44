#pragma once

#include <stillora/Types.h>

#include "platform/foundation/NSData.h"

#include <cstdint>
#include <span>

namespace stillora {

inline Bytes bytesOf(const platform::NSData& data)
{
    const auto bytes = std::as_bytes(std::span(data));
    return {bytes.begin(), bytes.end()};
}

inline platform::NSData dataOf(std::span<const std::byte> bytes)
{
    const auto* first = reinterpret_cast<const uint8_t*>(bytes.data());
    return {first, first + bytes.size()};
}

} // namespace stillora
