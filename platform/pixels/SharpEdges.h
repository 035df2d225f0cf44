#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Whether a picture is drawn rather than photographed: one pair of neighbouring samples in 256 lies further apart than
/// 64 steps. Of photos from cameras, brought to the size of a frame, one in a thousand does, of text and line art one
/// in thirty. Looks at two rows in sixteen.
///
/// @param samples  brightness, or a colour that will do for it, of 8 bits
/// @param step  bytes from a sample to the next
bool hasSharpEdges(const uint8_t* samples, size_t step, size_t width, size_t height, size_t bytesPerRow);

} // namespace platform
