#include "platform/graphics/TextRenderer.h"

#include "platform/foundation/Handle.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSCache.h"
#include "platform/pixels/CairoPixels.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace platform {

namespace {

using FontMapPtr = Handle<PangoFontMap, g_object_unref>;
using ContextPtr = Handle<PangoContext, g_object_unref>;
using LayoutPtr = Handle<PangoLayout, g_object_unref>;
using DescriptionPtr = Handle<PangoFontDescription, pango_font_description_free>;
using OptionsPtr = Handle<cairo_font_options_t, cairo_font_options_destroy>;

// Wider or higher than any frame; Cairo itself stops at 32,767.
constexpr int kMaxSide = 20000;

LayoutPtr makeLayout(PangoFontMap* fonts, std::string_view text, const TextAttributes& attributes)
{
    const ContextPtr context(pango_font_map_create_context(fonts));
    // The glyphs' own outlines and widths: a movie is not drawn for one screen's grid.
    const OptionsPtr options(cairo_font_options_create());
    cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context.get(), options.get());
    pango_cairo_context_set_resolution(context.get(), 72);

    const DescriptionPtr description(pango_font_description_from_string(attributes.fontName.c_str()));
    const char* const family = pango_font_description_get_family(description.get());
    // Free fonts with the same widths, then whatever there is.
    const std::string families =
        std::string(family ? family : "Helvetica") + ",Helvetica,Nimbus Sans,Liberation Sans,TeX Gyre Heros,Arimo,Sans";
    pango_font_description_set_family(description.get(), families.c_str());
    pango_font_description_set_absolute_size(description.get(), attributes.fontSize * PANGO_SCALE);

    LayoutPtr layout(pango_layout_new(context.get()));
    pango_layout_set_font_description(layout.get(), description.get());
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    return layout;
}

void setColor(cairo_t* cairo, const NSColor& color)
{
    cairo_set_source_rgba(cairo, color.red, color.green, color.blue, color.alpha);
}

std::shared_ptr<const RenderedText> render(PangoFontMap* fonts, std::string_view text, const TextAttributes& attributes)
{
    const LayoutPtr layout = makeLayout(fonts, text, attributes);
    PangoRectangle ink;
    PangoRectangle box;
    pango_layout_line_get_extents(pango_layout_get_line_readonly(layout.get(), 0), &ink, &box);

    // From the base line's start, y downwards.
    const double lineWidth = std::abs(attributes.strokeWidth) / 100 * attributes.fontSize;
    const double margin = lineWidth / 2 * 10 + 2;
    const double boxLeft = pango_units_to_double(box.x);
    const double boxBottom = pango_units_to_double(box.y + box.height);
    const double left = std::floor(pango_units_to_double(ink.x) - boxLeft - margin);
    const double right = std::ceil(pango_units_to_double(ink.x + ink.width) - boxLeft + margin);
    const double top = std::ceil(boxBottom - pango_units_to_double(ink.y) + margin);
    const double bottom = std::floor(boxBottom - pango_units_to_double(ink.y + ink.height) - margin);
    const double width = std::min<double>(right - left, kMaxSide);
    const double height = top - bottom;
    if (ink.width <= 0 || ink.height <= 0 || height > kMaxSide)
        return nullptr;

    const CairoSurfacePtr surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(width), static_cast<int>(height)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return nullptr;
    const CairoPtr cairo(cairo_create(surface.get()));
    cairo_move_to(cairo.get(), -boxLeft - left, top - boxBottom);
    pango_cairo_layout_line_path(cairo.get(), pango_layout_get_line_readonly(layout.get(), 0));
    if (attributes.strokeWidth <= 0) {
        setColor(cairo.get(), attributes.foregroundColor);
        cairo_fill_preserve(cairo.get());
    }
    if (lineWidth > 0) {
        setColor(cairo.get(), attributes.strokeColor);
        cairo_set_line_width(cairo.get(), lineWidth);
        cairo_stroke(cairo.get());
    }
    if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS)
        return nullptr;

    auto rendered = std::make_shared<RenderedText>();
    rendered->left = static_cast<int64_t>(left);
    rendered->top = static_cast<int64_t>(top);
    rendered->image = imageOfSurface(surface.get(), static_cast<size_t>(width), static_cast<size_t>(height));
    return rendered;
}

} // namespace

bool hasFontFor(std::string_view text, const TextAttributes& attributes)
{
    const FontMapPtr fonts(pango_cairo_font_map_new());
    const LayoutPtr layout = makeLayout(fonts.get(), text, attributes);
    return pango_layout_get_unknown_glyphs_count(layout.get()) == 0;
}

std::shared_ptr<const RenderedText> renderText(std::string_view text, const TextAttributes& attributes)
{
    // The two lines of a watermark for a few frame sizes.
    constexpr size_t kKept = 8;
    using Key = std::pair<std::string, TextAttributes>;
    static Lock lock;
    // Never destroyed: text may still be drawn while the process ends.
    static auto& kept = *new NSCache<Key, std::shared_ptr<const RenderedText>>(kKept, 0);
    static auto& fonts = *new FontMapPtr;

    if (!(attributes.fontSize >= 1) || attributes.fontSize > kMaxSide || text.empty())
        return nullptr;
    // Font maps are for one thread at a time.
    const Key key(text, attributes);
    LockGuard guard(lock);
    auto rendered = kept.objectForKey(key);
    if (!rendered) {
        if (!fonts)
            fonts.reset(pango_cairo_font_map_new());
        rendered = render(fonts.get(), text, attributes);
        kept.setObject(rendered, key);
    }
    return rendered;
}

} // namespace platform
