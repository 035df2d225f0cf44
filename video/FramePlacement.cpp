#include "video/FramePlacement.h"

#include <algorithm>
#include <cmath>
#include <limits>

using platform::CGPoint;
using platform::CGRect;
using platform::CGSize;

namespace {

constexpr CGRect kEmpty{};

bool contains(CGSize frame, CGRect face)
{
    return face.origin.x >= 0 && face.origin.y >= 0 && face.origin.x + face.size.width <= frame.width &&
           face.origin.y + face.size.height <= frame.height;
}

/// The rule of one axis: brings a face that sticks out to the middle, then lets no border show. A picture that does
/// not reach both edges stays where it is.
double placedOnAxis(double start, double pictureLength, double faceStart, double faceLength, double frameLength)
{
    if (frameLength > pictureLength)
        return start;
    const double inFrame = faceStart + start;
    if (inFrame < 0 || inFrame + faceLength > frameLength)
        start = start - inFrame + (frameLength - faceLength) / 2;
    if (start > 0)
        return 0;
    if (start + pictureLength < frameLength)
        return frameLength - pictureLength;
    return start;
}

double boundToFit(CGSize photo, CGSize frame, double ratio)
{
    if (photo.height > photo.width) {
        const double height = std::min(photo.height, frame.height);
        return height / ratio > frame.width ? ratio * frame.width : height;
    }
    const double width = std::min(photo.width, frame.width);
    return ratio * width > frame.height ? frame.height / ratio : width;
}

double boundToCover(CGSize photo, CGSize frame, double ratio)
{
    const double heightAtWidth = ratio * frame.width;
    const double widthAtHeight = frame.height / ratio;
    if (photo.width >= frame.width && photo.height >= frame.height)
        return photo.width > photo.height ? std::max(frame.width, widthAtHeight)
                                          : std::max(heightAtWidth, frame.height);
    if (photo.height > photo.width)
        return photo.height >= heightAtWidth ? heightAtWidth : std::max(photo.height, frame.height);
    return heightAtWidth <= photo.height ? frame.width : photo.width;
}

} // namespace

double thumbnailBound(CGSize photo, CGSize frame, bool reduceBorders)
{
    const double ratio = photo.height / photo.width;
    if (!reduceBorders)
        return boundToFit(photo, frame, ratio);
    // What multiplying leaves of a whole number; far too little to lose a pixel of the other side.
    constexpr double kRounding = 1e-6;
    return std::ceil(boundToCover(photo, frame, ratio) - kRounding);
}

CGRect unionOfFaces(const std::vector<CGRect>& faces)
{
    constexpr double kMost = std::numeric_limits<double>::max();
    double minX = kMost;
    double minY = kMost;
    double maxX = 0;
    double maxY = 0;
    for (const CGRect& face : faces) {
        minX = std::min(minX, face.origin.x);
        minY = std::min(minY, face.origin.y);
        maxX = std::max(maxX, face.origin.x + face.size.width);
        maxY = std::max(maxY, face.origin.y + face.size.height);
    }
    if (minX == kMost || minY == kMost || (maxX == 0 && maxY == 0))
        return kEmpty;
    return {{minX, minY}, {maxX - minX, maxY - minY}};
}

CGPoint placement(CGSize picture, CGRect face, CGSize frame)
{
    const CGPoint centred = {frame.width / 2 - picture.width / 2, frame.height / 2 - picture.height / 2};
    if (face == kEmpty)
        return centred;
    const CGRect inFrame = {{face.origin.x + centred.x, face.origin.y + centred.y}, face.size};
    if (contains(frame, inFrame))
        return centred;
    return {placedOnAxis(centred.x, picture.width, face.origin.x, face.size.width, frame.width),
            placedOnAxis(centred.y, picture.height, face.origin.y, face.size.height, frame.height)};
}

bool carriesWatermark(size_t index, size_t count)
{
    if (index == 0 || index + 1 == count)
        return true;
    // With fewer than ten frames the difference wraps round to a bound that no index passes.
    const size_t half = count / 2;
    return index > half - 5 && index < half + 5;
}
