#include "platform/system/DocumentIcon.h"

#include "platform/pixels/CairoPixels.h"

#include <cairo.h>

#include <array>
#include <memory>
#include <utility>

namespace platform {

namespace {

// Points; pixels are twice as many, for dense screens.
constexpr int kSide = 32;
constexpr int kPixelsPerPoint = 2;
constexpr double kPi = 3.14159265358979323846;

void drawPage(cairo_t* cairo)
{
    constexpr double kFold = 7;
    cairo_move_to(cairo, 5.5, 1.5);
    cairo_line_to(cairo, 26.5 - kFold, 1.5);
    cairo_line_to(cairo, 26.5, 1.5 + kFold);
    cairo_line_to(cairo, 26.5, 30.5);
    cairo_line_to(cairo, 5.5, 30.5);
    cairo_close_path(cairo);
    cairo_set_source_rgb(cairo, 0.98, 0.98, 0.99);
    cairo_fill_preserve(cairo);
    cairo_set_source_rgb(cairo, 0.55, 0.58, 0.62);
    cairo_set_line_width(cairo, 1);
    cairo_stroke(cairo);
    cairo_move_to(cairo, 26.5 - kFold, 1.5);
    cairo_line_to(cairo, 26.5 - kFold, 1.5 + kFold);
    cairo_line_to(cairo, 26.5, 1.5 + kFold);
    cairo_close_path(cairo);
    cairo_set_source_rgb(cairo, 0.84, 0.86, 0.89);
    cairo_fill_preserve(cairo);
    cairo_set_source_rgb(cairo, 0.55, 0.58, 0.62);
    cairo_stroke(cairo);
}

/// A strip of film with a triangle that says "play".
void drawFilm(cairo_t* cairo)
{
    cairo_rectangle(cairo, 8, 12, 16, 13);
    cairo_set_source_rgb(cairo, 0.16, 0.24, 0.40);
    cairo_fill(cairo);
    cairo_set_source_rgb(cairo, 0.98, 0.98, 0.99);
    for (int hole = 0; hole < 5; ++hole) {
        cairo_rectangle(cairo, 9 + 3.0 * hole, 13, 1.6, 1.6);
        cairo_rectangle(cairo, 9 + 3.0 * hole, 22.4, 1.6, 1.6);
    }
    cairo_fill(cairo);
    cairo_move_to(cairo, 14, 15.5);
    cairo_line_to(cairo, 19, 18.5);
    cairo_line_to(cairo, 14, 21.5);
    cairo_close_path(cairo);
    cairo_fill(cairo);
}

/// Two quavers under one beam.
void drawNotes(cairo_t* cairo)
{
    cairo_set_source_rgb(cairo, 0.72, 0.20, 0.36);
    cairo_arc(cairo, 11.7, 24, 2.2, 0, 2 * kPi);
    cairo_fill(cairo);
    cairo_arc(cairo, 19.2, 22.5, 2.2, 0, 2 * kPi);
    cairo_fill(cairo);
    cairo_rectangle(cairo, 12.6, 14, 1.3, 10);
    cairo_rectangle(cairo, 20.1, 12.5, 1.3, 10);
    cairo_fill(cairo);
    cairo_move_to(cairo, 12.6, 14);
    cairo_line_to(cairo, 21.4, 12.2);
    cairo_line_to(cairo, 21.4, 14.8);
    cairo_line_to(cairo, 12.6, 16.6);
    cairo_close_path(cairo);
    cairo_fill(cairo);
}

/// Hills under the sun.
void drawLandscape(cairo_t* cairo)
{
    cairo_rectangle(cairo, 8, 12, 16, 13);
    cairo_set_source_rgb(cairo, 0.66, 0.82, 0.94);
    cairo_fill(cairo);
    cairo_arc(cairo, 20, 15.5, 1.8, 0, 2 * kPi);
    cairo_set_source_rgb(cairo, 0.98, 0.80, 0.28);
    cairo_fill(cairo);
    cairo_move_to(cairo, 8, 25);
    cairo_line_to(cairo, 13, 16.5);
    cairo_line_to(cairo, 17, 22);
    cairo_line_to(cairo, 19.5, 19.5);
    cairo_line_to(cairo, 24, 25);
    cairo_close_path(cairo);
    cairo_set_source_rgb(cairo, 0.30, 0.52, 0.34);
    cairo_fill(cairo);
}

void drawLines(cairo_t* cairo)
{
    cairo_set_source_rgb(cairo, 0.70, 0.73, 0.77);
    for (int line = 0; line < 5; ++line)
        cairo_rectangle(cairo, 9, 12 + 3.2 * line, line == 4 ? 8 : 14, 1.2);
    cairo_fill(cairo);
}

NSImagePtr draw(DocumentKind kind)
{
    constexpr int kPixels = kSide * kPixelsPerPoint;
    const CairoSurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kPixels, kPixels));
    const CairoPtr cairo(cairo_create(surface.get()));
    cairo_scale(cairo.get(), kPixelsPerPoint, kPixelsPerPoint);
    drawPage(cairo.get());
    switch (kind) {
    case DocumentKind::Movie:
        drawFilm(cairo.get());
        break;
    case DocumentKind::Sound:
        drawNotes(cairo.get());
        break;
    case DocumentKind::Picture:
        drawLandscape(cairo.get());
        break;
    case DocumentKind::Plain:
        drawLines(cairo.get());
        break;
    }
    auto image = std::make_shared<const CGImage>(imageOfSurface(surface.get(), kPixels, kPixels));
    return std::make_shared<const NSImage>(std::move(image), CGSize{kSide, kSide});
}

} // namespace

NSImagePtr documentIcon(DocumentKind kind)
{
    static const std::array<NSImagePtr, 4> icons = {draw(DocumentKind::Plain), draw(DocumentKind::Movie),
                                                    draw(DocumentKind::Sound), draw(DocumentKind::Picture)};
    return icons[static_cast<size_t>(kind)];
}

} // namespace platform
