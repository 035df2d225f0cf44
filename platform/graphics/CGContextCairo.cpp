#include "platform/graphics/CGContext.h"

#include "platform/pixels/CairoPixels.h"
#include "platform/pixels/ImageScaler.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>

namespace platform {

namespace {

// Far more than any picture on a screen.
constexpr double kMaxSide = 16384;

/// Pixels that cover a length, or stand for more each where it is too long; 0 for what is none.
int pixelsOf(double length)
{
    return length > 0 ? static_cast<int>(std::ceil(std::min(length, kMaxSide))) : 0;
}

void setSource(cairo_t* cairo, const NSColor& color)
{
    cairo_set_source_rgba(cairo, color.red, color.green, color.blue, color.alpha);
}

} // namespace

struct CGContext::Surface {
    Origin origin = Origin::LowerLeft;
    int width = 0;
    int height = 0;
    CairoSurfacePtr pixels;
    CairoPtr cairo;
    NSColor fillColor;
    NSColor strokeColor;

    void draw(const CGImage& image, double left, double top, double drawnWidth, double drawnHeight);
};

CGContext::CGContext(CGSize size, Origin origin) : surface_(std::make_unique<Surface>())
{
    surface_->origin = origin;
    surface_->width = pixelsOf(size.width);
    surface_->height = pixelsOf(size.height);
    if (surface_->width == 0 || surface_->height == 0)
        return;
    surface_->pixels.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, surface_->width, surface_->height));
    surface_->cairo.reset(cairo_create(surface_->pixels.get()));
    cairo_t* const cairo = surface_->cairo.get();
    cairo_scale(cairo, surface_->width / size.width, surface_->height / size.height);
    if (origin == Origin::LowerLeft) {
        cairo_translate(cairo, 0, size.height);
        cairo_scale(cairo, 1, -1);
    }
    setLineWidth(1);
}

CGContext::~CGContext() = default;

bool CGContext::isReady() const
{
    return surface_->cairo && cairo_status(surface_->cairo.get()) == CAIRO_STATUS_SUCCESS;
}

void CGContext::setFillColor(const NSColor& color)
{
    surface_->fillColor = color;
}

void CGContext::setStrokeColor(const NSColor& color)
{
    surface_->strokeColor = color;
}

void CGContext::setLineWidth(double width)
{
    if (isReady())
        cairo_set_line_width(surface_->cairo.get(), width);
}

void CGContext::fillRect(CGRect rect)
{
    if (!isReady())
        return;
    cairo_rectangle(surface_->cairo.get(), rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    fillPath();
}

void CGContext::strokeRect(CGRect rect)
{
    if (!isReady())
        return;
    cairo_rectangle(surface_->cairo.get(), rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    strokePath();
}

void CGContext::moveToPoint(CGPoint point)
{
    if (isReady())
        cairo_move_to(surface_->cairo.get(), point.x, point.y);
}

void CGContext::addLineToPoint(CGPoint point)
{
    if (isReady())
        cairo_line_to(surface_->cairo.get(), point.x, point.y);
}

void CGContext::closePath()
{
    if (isReady())
        cairo_close_path(surface_->cairo.get());
}

void CGContext::strokePath()
{
    if (!isReady())
        return;
    setSource(surface_->cairo.get(), surface_->strokeColor);
    cairo_stroke(surface_->cairo.get());
}

void CGContext::fillPath()
{
    if (!isReady())
        return;
    setSource(surface_->cairo.get(), surface_->fillColor);
    cairo_fill(surface_->cairo.get());
}

void CGContext::drawImage(CGRect rect, const CGImage& image)
{
    if (!isReady() || image.width == 0 || image.height == 0)
        return;
    double left = rect.origin.x;
    double top = rect.origin.y + (surface_->origin == Origin::LowerLeft ? rect.size.height : 0);
    double right = rect.origin.x + rect.size.width;
    double bottom = rect.origin.y + (surface_->origin == Origin::LowerLeft ? 0 : rect.size.height);
    cairo_user_to_device(surface_->cairo.get(), &left, &top);
    cairo_user_to_device(surface_->cairo.get(), &right, &bottom);
    surface_->draw(image, left, top, right - left, bottom - top);
}

/// All in pixels. A picture is scaled to whole pixels by the scaler of photos, whose window sees every pixel, and only
/// what is left of its place and size is for Cairo to do.
void CGContext::Surface::draw(const CGImage& image, double left, double top, double drawnWidth, double drawnHeight)
{
    if (!(drawnWidth > 0 && drawnHeight > 0 && drawnWidth <= kMaxSide && drawnHeight <= kMaxSide))
        return;
    // What the multiplications above leave of a whole number.
    constexpr double kRounding = 1e-6;
    const auto wholeWidth = static_cast<size_t>(std::ceil(drawnWidth - kRounding));
    const auto wholeHeight = static_cast<size_t>(std::ceil(drawnHeight - kRounding));
    CGImage scaled;
    const CGImage* drawn = &image;
    if (wholeWidth != image.width || wholeHeight != image.height) {
        if (!scaleImage(image, wholeWidth, wholeHeight, scaled))
            return;
        drawn = &scaled;
    }
    const auto from = surfaceWithImage(*drawn);
    if (!from)
        return;
    cairo_save(cairo.get());
    cairo_identity_matrix(cairo.get());
    const bool isWhole = std::abs(left - std::round(left)) < kRounding && std::abs(top - std::round(top)) < kRounding &&
                         std::abs(drawnWidth - static_cast<double>(wholeWidth)) < kRounding &&
                         std::abs(drawnHeight - static_cast<double>(wholeHeight)) < kRounding;
    if (isWhole) {
        cairo_translate(cairo.get(), std::round(left), std::round(top));
    } else {
        cairo_translate(cairo.get(), left, top);
        cairo_scale(cairo.get(), drawnWidth / static_cast<double>(wholeWidth),
                    drawnHeight / static_cast<double>(wholeHeight));
    }
    cairo_set_source_surface(cairo.get(), from.get(), 0, 0);
    cairo_pattern_set_extend(cairo_get_source(cairo.get()), CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(cairo_get_source(cairo.get()), isWhole ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
    cairo_rectangle(cairo.get(), 0, 0, static_cast<double>(wholeWidth), static_cast<double>(wholeHeight));
    cairo_fill(cairo.get());
    cairo_restore(cairo.get());
}

CGImagePtr CGContext::createImage() const
{
    if (!isReady())
        return nullptr;
    try {
        auto image = std::make_shared<CGImage>(imageOfSurface(
            surface_->pixels.get(), static_cast<size_t>(surface_->width), static_cast<size_t>(surface_->height)));
        image->hasAlpha = false;
        for (size_t i = 0; i < image->pixels.size() && !image->hasAlpha; i += 4)
            image->hasAlpha = image->pixels[i] != 0xFF;
        return image;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace platform
