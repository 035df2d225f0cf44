#include "platform/encoders/ImageEncoder.h"
#include "platform/vips/VipsLibrary.h"

#include <vips/vips.h>

#include <memory>
#include <new>
#include <vector>

namespace platform {

namespace {

struct Unreference {
    void operator()(VipsImage* image) const { g_object_unref(image); }
};
using ImagePtr = std::unique_ptr<VipsImage, Unreference>;

struct Free {
    void operator()(void* memory) const { g_free(memory); }
};

#define STILLORA_VIPS_FUNCTIONS(X)                                                                                     \
    X(copy)                                                                                                            \
    X(error_clear)                                                                                                     \
    X(gifsave_buffer)                                                                                                  \
    X(image_new_from_memory)                                                                                           \
    X(jp2ksave_buffer)

STILLORA_VIPS_TABLE(STILLORA_VIPS_FUNCTIONS)
#undef STILLORA_VIPS_FUNCTIONS

constexpr void* kEnd = nullptr;

/// Hands the picture to `save`, which writes a file's bytes and their number and tells by 0 that it could.
template <typename Save>
std::optional<NSData> encode(const CGImage& image, Save save)
{
    // The library's own limit of a side.
    constexpr size_t kMostPixels = 10'000'000;
    if (image.width == 0 || image.height == 0 || image.width > kMostPixels || image.height > kMostPixels ||
        !vips().isComplete)
        return std::nullopt;
    try {
        const size_t bands = image.hasAlpha ? 4 : 3;
        std::vector<uint8_t> samples(image.width * image.height * bands);
        for (size_t y = 0; y < image.height; ++y)
            copyUnmultiplied(image, y, samples.data() + y * image.width * bands);
        const ImagePtr plain(vips().image_new_from_memory(samples.data(), samples.size(), static_cast<int>(image.width),
                                                          static_cast<int>(image.height), static_cast<int>(bands),
                                                          VIPS_FORMAT_UCHAR));
        VipsImage* described = nullptr;
        if (plain)
            vips().copy(plain.get(), &described, "interpretation", VIPS_INTERPRETATION_sRGB, kEnd);
        const ImagePtr picture(described);
        void* bytes = nullptr;
        size_t length = 0;
        const bool isSaved = picture && save(picture.get(), &bytes, &length) == 0;
        vips().error_clear();
        const std::unique_ptr<void, Free> owner(bytes);
        if (!isSaved)
            return std::nullopt;
        const auto* const first = static_cast<const uint8_t*>(bytes);
        return NSData(first, first + length);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

} // namespace

std::optional<NSData> encodeGIF(const CGImage& image)
{
    constexpr size_t kMostPixels = 65535;
    if (image.width > kMostPixels || image.height > kMostPixels)
        return std::nullopt;
    return encode(image, [](VipsImage* picture, void** bytes, size_t* length) {
        return vips().gifsave_buffer(picture, bytes, length, kEnd);
    });
}

std::optional<NSData> encodeJPEG2000(const CGImage& image, double compressionFactor)
{
    const double factor = clampedFactor(compressionFactor);
    return encode(image, [factor](VipsImage* picture, void** bytes, size_t* length) {
        if (factor == 1)
            return vips().jp2ksave_buffer(picture, bytes, length, "lossless", TRUE, kEnd);
        // Decibels of signal to noise: what is just to be recognised to what cannot be told from the original.
        constexpr double kLeast = 25;
        constexpr double kMost = 50;
        const auto quality = static_cast<int>(kLeast + (kMost - kLeast) * factor);
        return vips().jp2ksave_buffer(picture, bytes, length, "Q", quality, "subsample-mode",
                                      VIPS_FOREIGN_SUBSAMPLE_OFF, kEnd);
    });
}

} // namespace platform
