#include "platform/encoders/ImageEncoder.h"
#include "platform/pixels/CairoPixels.h"

#include <cairo.h>

#include <cmath>
#include <memory>
#include <new>
#include <span>

namespace platform {

namespace {

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, DestroySurface>;

cairo_status_t appendTo(void* closure, const unsigned char* data, unsigned length)
{
    try {
        auto& png = *static_cast<NSData*>(closure);
        png.insert(png.end(), data, data + length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

void appendBigEndian32(NSData& bytes, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
}

/// Of a chunk's name and content.
uint32_t checksum(std::span<const uint8_t> bytes)
{
    uint32_t sum = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320 : 0);
    }
    return ~sum;
}

/// "pHYs", which has to stand before the pixels.
NSData resolutionChunk(const CGImage& image, CGSize size)
{
    constexpr double kMetresPerInch = 0.0254;
    constexpr uint8_t kMetre = 1;
    NSData content = {'p', 'H', 'Y', 's'};
    for (const double dpi : {dotsPerInch(image.width, size.width), dotsPerInch(image.height, size.height)})
        appendBigEndian32(content, static_cast<uint32_t>(std::lround(dpi / kMetresPerInch)));
    content.push_back(kMetre);

    NSData chunk;
    appendBigEndian32(chunk, static_cast<uint32_t>(content.size() - 4));
    chunk.insert(chunk.end(), content.begin(), content.end());
    appendBigEndian32(chunk, checksum(content));
    return chunk;
}

} // namespace

std::optional<NSData> encodePNG(const CGImage& image, CGSize size)
{
    if (image.width == 0 || image.height == 0)
        return std::nullopt;
    const SurfacePtr surface(cairo_image_surface_create(image.hasAlpha ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24,
                                                        static_cast<int>(image.width), static_cast<int>(image.height)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    copyToCairo(image, cairo_image_surface_get_data(surface.get()),
                static_cast<size_t>(cairo_image_surface_get_stride(surface.get())));
    cairo_surface_mark_dirty(surface.get());

    NSData png;
    if (cairo_surface_write_to_png_stream(surface.get(), appendTo, &png) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    const bool isOnePixelAPoint =
        size.width == static_cast<double>(image.width) && size.height == static_cast<double>(image.height);
    if (!isOnePixelAPoint) {
        // Behind the signature and the header chunk.
        constexpr ptrdiff_t kHeaderBytes = 8 + 12 + 13;
        const NSData chunk = resolutionChunk(image, size);
        png.insert(png.begin() + kHeaderBytes, chunk.begin(), chunk.end());
    }
    return png;
}

} // namespace platform
