#pragma once

#include "platform/picturefiles/ImageFile.h"

#include <cstdint>
#include <functional>
#include <span>

namespace platform {

struct PNGChunk {
    /// Four characters.
    uint32_t name = 0;
    /// Where its content begins, and how long the file claims it to be.
    size_t begin = 0;
    size_t length = 0;
    /// As many of its first bytes as count in the longest that tells something of the picture. Those of a shorter one
    /// are followed by what stands behind it.
    std::span<const uint8_t> start;
};

/// Calls `take` with each chunk of a PNG file, until it returns false or there are no more.
/// @return false where there are more than 65,536: such files are made to keep readers busy
bool forEachPNGChunk(const ImageFile& file, const std::function<bool(const PNGChunk& chunk)>& take);

} // namespace platform
