#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace platform {

/// A decoded picture: sRGB, rows of 4-byte pixels X R G B (or A R G B, premultiplied, where `hasAlpha`), top row first,
/// `bytesPerRow` apart. Never changed once shared.
struct CGImage {
    size_t width = 0;
    size_t height = 0;
    size_t bytesPerRow = 0;
    bool hasAlpha = false;
    std::vector<uint8_t> pixels;

    const uint8_t* row(size_t y) const { return pixels.data() + y * bytesPerRow; }
    uint8_t* row(size_t y) { return pixels.data() + y * bytesPerRow; }
};

using CGImagePtr = std::shared_ptr<const CGImage>;

} // namespace platform
