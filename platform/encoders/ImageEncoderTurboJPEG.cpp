#include "platform/encoders/ImageEncoder.h"

#include "platform/foundation/Handle.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

namespace platform {

namespace {

struct FreeBytes {
    void operator()(unsigned char* bytes) const { tjFree(bytes); }
};

/// The picture's rows over white.
std::vector<uint8_t> opaqueCopy(const CGImage& image)
{
    std::vector<uint8_t> pixels(4 * image.width * image.height);
    for (size_t y = 0; y < image.height; ++y) {
        const uint8_t* from = image.row(y);
        uint8_t* to = pixels.data() + 4 * image.width * y;
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4)
            for (size_t i = 1; i < 4; ++i)
                to[i] = static_cast<uint8_t>(std::min(255u, from[i] + 255u - from[0]));
    }
    return pixels;
}

/// The first segment that the compressor writes, "JFIF", has room for whole dots an inch.
void writeResolution(NSData& jpeg, const CGImage& image, CGSize size)
{
    constexpr size_t kUnit = 13;
    constexpr size_t kSegmentEnd = 18;
    constexpr uint8_t kInch = 1;
    if (jpeg.size() < kSegmentEnd || jpeg[3] != 0xE0)
        return;
    jpeg[kUnit] = kInch;
    size_t place = kUnit + 1;
    for (const double dpi : {dotsPerInch(image.width, size.width), dotsPerInch(image.height, size.height)}) {
        const auto whole = static_cast<unsigned>(std::clamp(std::round(dpi), 1.0, 65535.0));
        jpeg[place++] = static_cast<uint8_t>(whole >> 8);
        jpeg[place++] = static_cast<uint8_t>(whole & 0xFF);
    }
}

} // namespace

std::optional<NSData> encodeJPEG(const CGImage& image, CGSize size, double compressionFactor)
{
    constexpr size_t kMostPixels = 65500;
    if (image.width == 0 || image.height == 0 || image.width > kMostPixels || image.height > kMostPixels)
        return std::nullopt;
    try {
        const Handle<void, tjDestroy> compressor(tjInitCompress());
        if (!compressor)
            return std::nullopt;
        const std::vector<uint8_t> opaque = image.hasAlpha ? opaqueCopy(image) : std::vector<uint8_t>();
        const double factor = clampedFactor(compressionFactor);
        const int quality = std::max(1, static_cast<int>(std::lround(100 * factor)));
        // Where hardly anything is to be lost, colours keep their full resolution.
        constexpr double kHighQuality = 0.9;
        unsigned char* bytes = nullptr;
        unsigned long length = 0;
        const int status = tjCompress2(
            compressor.get(), image.hasAlpha ? opaque.data() : image.pixels.data(), static_cast<int>(image.width),
            static_cast<int>(image.hasAlpha ? 4 * image.width : image.bytesPerRow), static_cast<int>(image.height),
            TJPF_XRGB, &bytes, &length, factor >= kHighQuality ? TJSAMP_444 : TJSAMP_420, quality, TJFLAG_ACCURATEDCT);
        const std::unique_ptr<unsigned char, FreeBytes> owner(bytes);
        if (status != 0)
            return std::nullopt;
        NSData jpeg(bytes, bytes + length);
        writeResolution(jpeg, image, size);
        return jpeg;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

} // namespace platform
