#pragma once

#include "platform/picturefiles/ImageFile.h"
#include "platform/pixels/ImageScaler.h"

#include <optional>

namespace platform {

/// A WebP file of one picture without transparency that is coded with loss: as photos are. Its planes are taken as they
/// are coded.
struct WebPPixels {
    size_t width = 0;
    size_t height = 0;

    /// @return nothing where the file is of another kind, or its header damaged
    static std::optional<WebPPixels> inFile(ImageFile& file);

    /// Whether the file is as long as it says and its first rows can be decoded.
    bool hasFirstRows(ImageFile& file) const;

    /// @return planes in the thread's ScratchMemory; nothing where the file is damaged or memory short
    std::optional<ImagePlanes> read(ImageFile& file) const;
};

} // namespace platform
