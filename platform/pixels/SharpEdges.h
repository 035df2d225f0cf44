#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// How many pairs of neighbouring samples of a picture lie far apart: more than 64 steps of 256. Of photographs at the
/// size of a frame up to one in thirty does, of text and line art one in fifteen and more.
struct SharpEdges {
    /// Of all pairs, from 0 to 1.
    double share = 0;
    /// Of all pairs too, from 0 to `share`: those beside which, a few samples away, nothing changes. There waves around
    /// the edge would be seen. Of photographs one in two hundred at the most, of text one in twenty.
    double shareOnFlatGround = 0;
};

/// Looks at two rows in sixteen.
///
/// @param samples  brightness, or a colour that will do for it, of 8 bits
/// @param step  bytes from a sample to the next
SharpEdges sharpEdgesOf(const uint8_t* samples, size_t step, size_t width, size_t height, size_t bytesPerRow);

} // namespace platform
