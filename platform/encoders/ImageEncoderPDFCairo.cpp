#include "platform/encoders/ImageEncoder.h"
#include "platform/pixels/CairoPixels.h"

#include <cairo-pdf.h>
#include <cairo.h>

#include <memory>
#include <new>

namespace platform {

namespace {

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, DestroySurface>;

struct DestroyCairo {
    void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
using CairoPtr = std::unique_ptr<cairo_t, DestroyCairo>;

cairo_status_t appendTo(void* closure, const unsigned char* data, unsigned length)
{
    try {
        auto& pdf = *static_cast<NSData*>(closure);
        pdf.insert(pdf.end(), data, data + length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

} // namespace

std::optional<NSData> encodePDF(const CGImage& image, CGSize size)
{
    const SurfacePtr picture(cairo_image_surface_create(image.hasAlpha ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24,
                                                        static_cast<int>(image.width), static_cast<int>(image.height)));
    if (image.width == 0 || image.height == 0 || cairo_surface_status(picture.get()) != CAIRO_STATUS_SUCCESS ||
        !(size.width > 0 && size.height > 0))
        return std::nullopt;
    copyToCairo(image, cairo_image_surface_get_data(picture.get()),
                static_cast<size_t>(cairo_image_surface_get_stride(picture.get())));
    cairo_surface_mark_dirty(picture.get());

    NSData pdf;
    const SurfacePtr page(cairo_pdf_surface_create_for_stream(appendTo, &pdf, size.width, size.height));
    const CairoPtr cairo(cairo_create(page.get()));
    cairo_scale(cairo.get(), size.width / static_cast<double>(image.width),
                size.height / static_cast<double>(image.height));
    cairo_set_source_surface(cairo.get(), picture.get(), 0, 0);
    // Its pixels as they are: viewers smooth them as they see fit, and none is drawn anew.
    cairo_pattern_set_filter(cairo_get_source(cairo.get()), CAIRO_FILTER_NEAREST);
    cairo_paint(cairo.get());
    cairo_show_page(cairo.get());
    cairo_surface_finish(page.get());
    if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS || cairo_surface_status(page.get()) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    return pdf;
}

} // namespace platform
