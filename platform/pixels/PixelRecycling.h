#pragma once

#include "platform/pixels/CGImage.h"

#include <cstdint>
#include <vector>

namespace platform {

/// Memory of pictures that are done with, for the next: taken anew, it would have to be cleared and mapped for every
/// photo. Any thread.
class PixelRecycling final {
public:
    /// Bytes of any number and value.
    static std::vector<uint8_t> take();
    static void give(std::vector<uint8_t> pixels);
};

/// Shares a picture whose memory is used again after its last user.
CGImagePtr shareRecycled(CGImage image);

} // namespace platform
