#include "platform/graphics/NSImage.h"

#include <cairo.h>

#include <cstring>
#include <utility>

namespace platform {

namespace {

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, DestroySurface>;

CGSize sizeOrPixels(const CGImagePtr& image, CGSize size)
{
    if (size == kNSZeroSize && image)
        return {static_cast<double>(image->width), static_cast<double>(image->height)};
    return size;
}

cairo_status_t appendTo(void* closure, const unsigned char* data, unsigned length)
{
    auto& png = *static_cast<NSData*>(closure);
    png.insert(png.end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

NSImage::NSImage(CGImagePtr image, CGSize size) : image_(std::move(image)), size_(sizeOrPixels(image_, size)) {}

std::optional<NSData> NSImage::pngData() const
{
    if (!image_ || image_->width == 0 || image_->height == 0)
        return std::nullopt;
    const SurfacePtr surface(cairo_image_surface_create(image_->hasAlpha ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24,
                                                        static_cast<int>(image_->width),
                                                        static_cast<int>(image_->height)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;

    // Cairo's pixels are 32-bit numbers 0xAARRGGBB of the machine's byte order, ours the bytes A R G B.
    uint8_t* const pixels = cairo_image_surface_get_data(surface.get());
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface.get()));
    for (size_t y = 0; y < image_->height; ++y) {
        const uint8_t* from = image_->row(y);
        uint8_t* to = pixels + y * stride;
        for (size_t x = 0; x < image_->width; ++x, from += 4, to += 4) {
            const uint32_t pixel = uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
            std::memcpy(to, &pixel, sizeof pixel);
        }
    }
    cairo_surface_mark_dirty(surface.get());

    NSData png;
    if (cairo_surface_write_to_png_stream(surface.get(), appendTo, &png) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    return png;
}

} // namespace platform
