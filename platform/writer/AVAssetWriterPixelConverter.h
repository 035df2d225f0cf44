#pragma once

#include "platform/foundation/NSError.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

/// Turns frames of 4-byte pixels X R G B into BT.709 limited range planes, as encoders take them. For the writer's
/// encoders alone; one thread at a time.
class AVAssetWriterPixelConverter {
public:
    enum class Layout {
        /// 8 bits, chroma at half width and height, sited left.
        YUV420,
        /// 10 bits in 16-bit words, chroma at half width, sited left.
        YUV422Deep,
        /// 10 bits in 16-bit words.
        YUV444Deep
    };

    /// Y, U, V; rows `strides` bytes apart. Pointers and strides are multiples of 64.
    struct Planes {
        std::array<uint8_t*, 3> data{};
        std::array<ptrdiff_t, 3> strides{};
    };

    /// @param width, height  even
    /// @return null if the library refuses; `error` says why
    [[nodiscard]] static std::unique_ptr<AVAssetWriterPixelConverter> create(int width, int height, Layout layout,
                                                                             NSError* error = nullptr);

    virtual ~AVAssetWriterPixelConverter() = default;

    /// @param pixels       aligned to 64 bytes; the byte before each red one is not looked at
    /// @param bytesPerRow  a multiple of 64
    [[nodiscard]] virtual bool convert(const uint8_t* pixels, size_t bytesPerRow, const Planes& planes,
                                       NSError* error = nullptr) = 0;
};

} // namespace platform
