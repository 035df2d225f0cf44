#pragma once

#include "platform/foundation/Handle.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

struct _GChecksum;

namespace platform {

/// Computes the SHA-256 of bytes that come in pieces (FIPS 180-4). One thread at a time.
class SHA256 final {
public:
    SHA256();

    void add(std::span<const std::byte> bytes);
    void add(std::string_view text) { add(std::as_bytes(std::span(text))); }

    /// Of all bytes so far, as 64 lowercase hexadecimal digits. Nothing is added afterwards.
    std::string digest();

private:
    static void release(_GChecksum* checksum);

    Handle<_GChecksum, release> checksum_;
};

} // namespace platform
