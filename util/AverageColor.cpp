#include "util/AverageColor.h"

#include <cstdint>
#include <optional>
#include <utility>

using platform::CGSize;
using platform::NSBitmapImageRep;
using platform::NSColor;
using platform::NSImage;

namespace {

// In components from 0 to 1.
constexpr double kGreyTolerance = 0.025;

/// Whole numbers from 0 that are less than `length`, but not more than `limit`: there is no colour beyond it.
int64_t countBelow(double length, size_t limit)
{
    int64_t count = 0;
    while (count < static_cast<int64_t>(limit) && static_cast<double>(count) < length)
        ++count;
    return count;
}

} // namespace

NSColor averageColorOfBitmap(const NSBitmapImageRep* bitmap, CGSize bounds)
{
    double red = 0;
    double green = 0;
    double blue = 0;
    uint64_t count = 0;
    const int64_t width = bitmap ? countBelow(bounds.width, bitmap->pixelsWide()) : 0;
    const int64_t height = bitmap ? countBelow(bounds.height, bitmap->pixelsHigh()) : 0;
    for (int64_t x = 0; x < width; ++x)
        for (int64_t y = 0; y < height; ++y) {
            const auto sample = bitmap->colorAtX(x, y);
            if (!sample)
                continue;
            const NSColor color = sample->colorUsingCalibratedRGB();
            red += color.red;
            green += color.green;
            blue += color.blue;
            ++count;
        }
    red /= static_cast<double>(count);
    green /= static_cast<double>(count);
    blue /= static_cast<double>(count);

    const double grey = (blue + (red + green)) / 3;
    // False for what is no number.
    const auto isNear = [grey](double average) {
        return average - kGreyTolerance <= grey && grey <= average + kGreyTolerance;
    };
    if (isNear(red) && isNear(green) && isNear(blue))
        return {.red = grey, .green = grey, .blue = grey};
    return {.red = red, .green = green, .blue = blue};
}

NSColor averageColorOfImage(const NSImage* image)
{
    auto tiff = image ? image->TIFFRepresentation() : std::nullopt;
    const auto bitmap = tiff ? NSBitmapImageRep::imageRepWithData(std::move(*tiff)) : std::nullopt;
    return averageColorOfBitmap(bitmap ? &*bitmap : nullptr, image ? image->size() : platform::kNSZeroSize);
}
