#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// What the head of a JPEG 2000 code stream tells, which follows the boxes of the container if there is one.
struct JPEG2000Header {
    size_t width = 0;
    size_t height = 0;
    unsigned components = 0;
    uint64_t tiles = 0;
    /// Halvings of the picture; at least 0.
    unsigned levels = 0;
    /// Of the smallest block of coefficients and of the smallest group of such blocks that any part of the file asks
    /// for; these are kept one by one.
    uint64_t pixelsOfBlock = 0;
    uint64_t pixelsOfGroup = 0;
};

/// Nothing where there is no such stream, or no picture in it. What the heads of tiles ask for counts as far as their
/// bytes are there.
std::optional<JPEG2000Header> readJPEG2000Header(std::span<const uint8_t> bytes);

} // namespace platform
