#pragma once

#include "platform/pixels/ImageScaler.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform {

/// Memory for the planes of a picture that is decoded into them; the thread's own, as ScratchMemory::Use::Planes has
/// it.
class PlaneMemory final {
public:
    /// @param kind  all but the planes and their size
    /// @param width, height  of the picture, at least 1; the planes are larger where colours are stored for several
    /// samples
    ///     at a time
    PlaneMemory(const ImagePlanes& kind, size_t width, size_t height);

    /// False where memory was short.
    bool isReady() const { return memory_ != nullptr; }
    const ImagePlanes& planes() const { return planes_; }

    /// @name Of one plane, in samples
    /// @{
    size_t width(size_t plane) const { return planes_.width >> subsamplingX(plane); }
    size_t height(size_t plane) const { return planes_.height >> subsamplingY(plane); }
    /// @}
    unsigned subsamplingX(size_t plane) const { return plane == 0 ? 0 : planes_.subsampleX; }
    unsigned subsamplingY(size_t plane) const { return plane == 0 ? 0 : planes_.subsampleY; }
    size_t sampleBytes() const { return planes_.depth > 8 ? 2 : 1; }
    uint8_t* row(size_t plane, size_t y);

    /// Fills what of the brightness lies outside the picture, since the scaler's window reaches there.
    void repeatEdges();

private:
    const size_t pictureWidth_;
    const size_t pictureHeight_;
    ImagePlanes planes_;
    std::array<size_t, 4> offsets_{};
    uint8_t* memory_ = nullptr;
};

} // namespace platform
