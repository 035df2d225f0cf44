#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

/// Success of the pixel buffer operations.
inline constexpr int32_t kCVReturnSuccess = 0;
inline constexpr int32_t kCVReturnError = -6660;
inline constexpr int32_t kCVReturnInvalidArgument = -6661;
inline constexpr int32_t kCVReturnAllocationFailed = -6662;
inline constexpr int32_t kCVReturnInvalidPixelFormat = -6680;
inline constexpr int32_t kCVReturnInvalidSize = -6681;

/// 8 bits each of alpha, red, green, blue in that byte order.
inline constexpr uint32_t kCVPixelFormatType_32ARGB = 32;

/// The pixels of one frame: rows of 4-byte pixels X R G B, top row first. Shared by its makers and users; pixels may be
/// touched only between lock and unlock.
class CVPixelBuffer final {
public:
    ~CVPixelBuffer();
    CVPixelBuffer(const CVPixelBuffer&) = delete;
    CVPixelBuffer& operator=(const CVPixelBuffer&) = delete;

    size_t width() const { return width_; }
    size_t height() const { return height_; }
    uint32_t pixelFormatType() const { return kCVPixelFormatType_32ARGB; }
    /// At least 4 * width; a multiple of 64.
    size_t bytesPerRow() const { return bytesPerRow_; }

    /// One thread at a time; locks nest.
    /// @return kCVReturnSuccess, or kCVReturnError once the pixels were taken
    [[nodiscard]] int32_t lockBaseAddress();
    void unlockBaseAddress();
    /// Null unless locked; aligned to 64 bytes.
    uint8_t* baseAddress() { return base_; }

    /// A buffer that has the pixels from now on; this one keeps the place of the frame without them. Not while they are
    /// locked; one thread at a time.
    /// @return null if they are locked, or were taken before
    [[nodiscard]] std::shared_ptr<CVPixelBuffer> takePixels();

private:
    friend int32_t CVPixelBufferCreate(size_t, size_t, uint32_t, std::shared_ptr<CVPixelBuffer>*);
    struct Storage;
    CVPixelBuffer(size_t width, size_t height, size_t bytesPerRow, std::unique_ptr<Storage> storage);

    const size_t width_;
    const size_t height_;
    const size_t bytesPerRow_;
    // One thread at a time.
    uint8_t* base_ = nullptr;
    size_t locks_ = 0;
    std::unique_ptr<Storage> storage_;
};

/// Makes a pixel buffer; its pixels are undefined.
///
/// @param buffer  out: written on success only
/// @return kCVReturnSuccess, or what was wrong: size (each side 1 to 16384), format, no memory
[[nodiscard]] int32_t CVPixelBufferCreate(size_t width, size_t height, uint32_t pixelFormatType,
                                          std::shared_ptr<CVPixelBuffer>* buffer);

/// Bytes of pixels that all buffers of the process have in memory now. Any thread.
size_t pixelBufferBytesInMemory();

} // namespace platform
