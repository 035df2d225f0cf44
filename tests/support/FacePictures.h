#pragma once

#include "platform/decoders/CGImageSource.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/CGBitmapContext.h"
#include "platform/pixels/CGImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// Pictures with faces, made of the photos that python3-skimage brings along. Rectangles have their origin in the lower
/// left corner, as the detector's have.
namespace test {

using platform::CGImage;
using platform::CGRect;

inline CGRect fromTop(double x, double y, double width, double height, double pictureHeight)
{
    return {{x, pictureHeight - y - height}, {width, height}};
}

/// 512 x 512, with one face: from the crown of the head, hair and all, to the chin.
inline const CGRect kAstronautFace = fromTop(178, 18, 91, 158, 512);
inline const CGRect kCameraFace = fromTop(198, 86, 60, 111, 512);

inline CGImage photo(const std::string& name)
{
    const auto source =
        platform::CGImageSource::createWithURL(platform::NSURL::fileURLWithPath(STILLORA_SKIMAGE_FOLDER "/" + name));
    const auto image = source ? source->createImageAtIndex() : nullptr;
    EXPECT_NE(image, nullptr) << name;
    return image ? *image : CGImage{};
}

inline CGImage blank(size_t width, size_t height, uint8_t grey = 128)
{
    CGImage image{.width = width, .height = height, .bytesPerRow = width * 4, .hasAlpha = false, .pixels = {}};
    image.pixels.assign(image.bytesPerRow * height, grey);
    return image;
}

inline CGRect wholeOf(const CGImage& image)
{
    return {{0, 0}, {static_cast<double>(image.width), static_cast<double>(image.height)}};
}

/// Draws `image` scaled into `place`.
inline void paste(CGImage& onto, const CGImage& image, CGRect place)
{
    platform::CGBitmapContext context(onto.pixels.data(), onto.width, onto.height, onto.bytesPerRow);
    ASSERT_TRUE(context.drawImage(place, image));
}

inline CGImage scaled(const CGImage& image, size_t width, size_t height)
{
    CGImage result = blank(width, height);
    paste(result, image, wholeOf(result));
    return result;
}

/// A part of the picture in whole pixels; what lies outside is grey.
inline CGImage cropped(const CGImage& image, CGRect part)
{
    CGImage result = blank(static_cast<size_t>(part.size.width), static_cast<size_t>(part.size.height));
    paste(result, image, {{-part.origin.x, -part.origin.y}, wholeOf(image).size});
    return result;
}

inline CGRect moved(CGRect rect, double x, double y)
{
    return {{rect.origin.x + x, rect.origin.y + y}, rect.size};
}

inline CGRect zoomed(CGRect rect, double factor)
{
    return {{rect.origin.x * factor, rect.origin.y * factor}, {rect.size.width * factor, rect.size.height * factor}};
}

inline double right(const CGRect& rect)
{
    return rect.origin.x + rect.size.width;
}

inline double top(const CGRect& rect)
{
    return rect.origin.y + rect.size.height;
}

inline CGRect unionOf(const std::vector<CGRect>& rects)
{
    if (rects.empty())
        return {};
    CGRect all = rects.front();
    for (const CGRect& rect : rects) {
        const double r = std::max(right(all), right(rect));
        const double t = std::max(top(all), top(rect));
        all.origin = {std::min(all.origin.x, rect.origin.x), std::min(all.origin.y, rect.origin.y)};
        all.size = {r - all.origin.x, t - all.origin.y};
    }
    return all;
}

/// A detector's idea of where a face ends differs from a person's; a quarter of the face still frames it well.
inline void expectNear(const CGRect& found, const CGRect& expected, double share = 0.25)
{
    const double x = expected.size.width * share;
    const double y = expected.size.height * share;
    EXPECT_NEAR(found.origin.x, expected.origin.x, x) << "left";
    EXPECT_NEAR(right(found), right(expected), x) << "right";
    EXPECT_NEAR(found.origin.y, expected.origin.y, y) << "bottom";
    EXPECT_NEAR(top(found), top(expected), y) << "top";
}

} // namespace test
