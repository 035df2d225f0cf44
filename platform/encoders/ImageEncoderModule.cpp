#include "platform/encoders/ImageEncoder.h"
#include "platform/vips/PictureLibrary.h"
#include "platform/vips/module/PictureModule.h"

#include <memory>
#include <new>
#include <vector>

namespace platform {

namespace {

struct Release {
    void operator()(uint8_t* file) const { pictureLibrary()->release(file); }
};

std::optional<NSData> encode(const char* format, const CGImage& image, size_t mostPixels, double factor)
{
    const PictureModule* const library = pictureLibrary();
    if (image.width == 0 || image.height == 0 || image.width > mostPixels || image.height > mostPixels || !library)
        return std::nullopt;
    try {
        const size_t bands = image.hasAlpha ? 4 : 3;
        std::vector<uint8_t> samples(image.width * image.height * bands);
        for (size_t y = 0; y < image.height; ++y)
            copyUnmultiplied(image, y, samples.data() + y * image.width * bands);
        size_t length = 0;
        const std::unique_ptr<uint8_t, Release> bytes(
            library->save(format, samples.data(), image.width, image.height, bands, factor, &length));
        return bytes ? std::optional(NSData(bytes.get(), bytes.get() + length)) : std::nullopt;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

} // namespace

std::optional<NSData> encodeGIF(const CGImage& image)
{
    constexpr size_t kMostPixels = 65535;
    return encode("gif", image, kMostPixels, 1);
}

std::optional<NSData> encodeJPEG2000(const CGImage& image, double compressionFactor)
{
    // The library's own limit of a side.
    constexpr size_t kMostPixels = 10'000'000;
    return encode("jp2", image, kMostPixels, clampedFactor(compressionFactor));
}

} // namespace platform
