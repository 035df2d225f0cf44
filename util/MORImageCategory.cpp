#include "util/MORImageCategory.h"

#include "platform/graphics/ImageScaler.h"

#include <algorithm>
#include <cmath>
#include <utility>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGSize;
using platform::NSImage;
using platform::NSImagePtr;

namespace MORImageCategory {

namespace {

// Far more than any picture on a screen.
constexpr double kMaxSide = 16384;

size_t wholePixels(double length)
{
    return static_cast<size_t>(std::ceil(std::clamp(length, 1.0, kMaxSide)));
}

} // namespace

NSImagePtr initWithCGImage(const CGImagePtr& image, CGSize fitInSizeRespectingAspectRatio)
{
    const CGSize target = fitInSizeRespectingAspectRatio;
    if (!image)
        return nullptr;
    if (target == platform::kNSZeroSize)
        return std::make_shared<const NSImage>(image, platform::kNSZeroSize);

    const auto width = static_cast<double>(image->width);
    const auto height = static_cast<double>(image->height);
    const double ratio = width / height;
    const CGSize size =
        width <= height ? CGSize{target.height * ratio, target.height} : CGSize{target.width, target.width / ratio};
    // Drawn at once into pixels of its own, so that a small image does not keep a large one alive.
    auto scaled = std::make_shared<CGImage>();
    if (!platform::scaleImage(*image, wholePixels(size.width), wholePixels(size.height), *scaled))
        return nullptr;
    return std::make_shared<const NSImage>(std::move(scaled), size);
}

} // namespace MORImageCategory
