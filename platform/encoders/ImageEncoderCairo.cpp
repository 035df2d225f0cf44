#include "platform/encoders/ImageEncoder.h"
#include "platform/pixels/CairoPixels.h"

#include <cairo-pdf.h>
#include <cairo.h>

#include <cmath>
#include <new>
#include <span>

namespace platform {

namespace {

cairo_status_t appendTo(void* closure, const unsigned char* data, unsigned length)
{
    try {
        auto& bytes = *static_cast<NSData*>(closure);
        bytes.insert(bytes.end(), data, data + length);
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
    const auto surface = surfaceWithImage(image);
    NSData png;
    if (!surface || cairo_surface_write_to_png_stream(surface.get(), appendTo, &png) != CAIRO_STATUS_SUCCESS)
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

std::optional<NSData> encodePDF(const CGImage& image, CGSize size)
{
    const auto picture = surfaceWithImage(image);
    if (!picture || !(size.width > 0 && size.height > 0))
        return std::nullopt;
    NSData pdf;
    const CairoSurfacePtr page(cairo_pdf_surface_create_for_stream(appendTo, &pdf, size.width, size.height));
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
