#pragma once

#include "platform/pixels/CGImage.h"

#include <cstddef>
#include <memory>

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace platform {

struct DestroyCairo {
    void operator()(cairo_t* context) const;
    void operator()(cairo_surface_t* surface) const;
};
using CairoPtr = std::unique_ptr<cairo_t, DestroyCairo>;
using CairoSurfacePtr = std::unique_ptr<cairo_surface_t, DestroyCairo>;

/// A picture's pixels; null where it has none, or there is no memory for them.
CairoSurfacePtr surfaceWithImage(const CGImage& image);

/// What was drawn on a surface of numbers with alpha, of this size; all clear where there was no memory for it.
CGImage imageOfSurface(cairo_surface_t* surface, size_t width, size_t height);

} // namespace platform
