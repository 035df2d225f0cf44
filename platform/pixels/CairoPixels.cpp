#include "platform/pixels/CairoPixels.h"

#include <cairo.h>

#include <cstdint>
#include <cstring>

namespace platform {

void DestroyCairo::operator()(cairo_t* context) const
{
    cairo_destroy(context);
}

void DestroyCairo::operator()(cairo_surface_t* surface) const
{
    cairo_surface_destroy(surface);
}

// Our pixels are the bytes A R G B, Cairo's are numbers 0xAARRGGBB of the machine's byte order.

CairoSurfacePtr surfaceWithImage(const CGImage& image)
{
    CairoSurfacePtr surface(cairo_image_surface_create(image.hasAlpha ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24,
                                                       static_cast<int>(image.width), static_cast<int>(image.height)));
    if (image.width == 0 || image.height == 0 || cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return nullptr;
    uint8_t* const pixels = cairo_image_surface_get_data(surface.get());
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface.get()));
    for (size_t y = 0; y < image.height; ++y) {
        const uint8_t* from = image.row(y);
        uint8_t* to = pixels + y * stride;
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4) {
            const uint32_t pixel = uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
            std::memcpy(to, &pixel, sizeof pixel);
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

CGImage imageOfSurface(cairo_surface_t* surface, size_t width, size_t height)
{
    CGImage image{width, height, 4 * width, true, std::vector<uint8_t>(4 * width * height)};
    cairo_surface_flush(surface);
    const uint8_t* const pixels = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface));
    for (size_t y = 0; pixels && y < height; ++y) {
        const uint8_t* from = pixels + y * stride;
        uint8_t* to = image.row(y);
        for (size_t x = 0; x < width; ++x, from += 4, to += 4) {
            uint32_t pixel = 0;
            std::memcpy(&pixel, from, sizeof pixel);
            for (size_t i = 0; i < 4; ++i)
                to[i] = static_cast<uint8_t>(pixel >> (24 - 8 * i));
        }
    }
    return image;
}

} // namespace platform
