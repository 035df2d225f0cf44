#include <stillora/Movie.h>
#include <stillora/Picture.h>

#include "client/ClientError.h"
#include "client/DataBytes.h"
#include "client/LocalizedText.h"
#include "client/WatermarkChoice.h"
#include "platform/decoders/CGImageSource.h"
#include "platform/graphics/NSImage.h"
#include "util/MORImageCategory.h"
#include "video/FramePlacement.h"
#include "video/PhotoFrame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::CGImage;
using platform::CGRect;
using platform::NSURL;

using Colour = std::array<uint8_t, 3>;
constexpr Colour kBlack = {0, 0, 0};
constexpr Colour kFaceColour = {255, 220, 0};
constexpr Colour kUnionColour = {0, 255, 128};

void fill(CGImage& image, int64_t left, int64_t top, int64_t right, int64_t bottom, const Colour& colour)
{
    const auto inside = [](int64_t value, size_t limit) {
        return static_cast<size_t>(std::clamp<int64_t>(value, 0, static_cast<int64_t>(limit)));
    };
    for (size_t y = inside(top, image.height); y < inside(bottom, image.height); ++y)
        for (size_t x = inside(left, image.width); x < inside(right, image.width); ++x)
            std::copy(colour.begin(), colour.end(), image.row(y) + x * 4 + 1);
}

/// A line `width` pixels wide around the rectangle, whose origin is the lower left corner.
void drawOutline(CGImage& image, const CGRect& rect, int64_t width, const Colour& colour)
{
    const int64_t left = std::lround(rect.origin.x);
    const int64_t right = std::lround(rect.origin.x + rect.size.width);
    const int64_t top = std::lround(static_cast<double>(image.height) - rect.origin.y - rect.size.height);
    const int64_t bottom = std::lround(static_cast<double>(image.height) - rect.origin.y);
    fill(image, left - width, top - width, right + width, top, colour);
    fill(image, left - width, bottom, right + width, bottom + width, colour);
    fill(image, left - width, top, left, bottom, colour);
    fill(image, right, top, right + width, bottom, colour);
}

/// Every face, and what they cover together, as they lie in the frame; those outside are not seen.
void drawFaces(CGImage& image, const PhotoFrame& frame)
{
    const int64_t width = std::max<int64_t>(2, static_cast<int64_t>(image.height) / 240);
    const auto draw = [&](CGRect rect, const Colour& colour) {
        rect.origin.x += frame.origin.x;
        rect.origin.y += frame.origin.y;
        // A dark rim, so that the line is seen on a photo of its own colour.
        drawOutline(image, rect, width + std::max<int64_t>(1, width / 2), kBlack);
        drawOutline(image, rect, width, colour);
    };
    if (frame.faces.size() > 1)
        draw(unionOfFaces(frame.faces), kUnionColour);
    for (const CGRect& face : frame.faces)
        draw(face, kFaceColour);
}

Result<Bytes> pngOf(const std::optional<platform::NSData>& file)
{
    if (!file)
        return Error{ErrorCode::Failed, {}, localized("there is not enough memory for the picture")};
    return bytesOf(*file);
}

} // namespace

Result<Frame> renderFrame(const PhotoFacts& photo, const FrameStyle& style)
{
    const Size size = frameSizeForQuality(style.quality, {photo});
    const auto frame = renderPhotoFrame({.photo = NSURL::fileURLWithPath(photo.path.native()),
                                         .photoSize = {photo.size.width, photo.size.height},
                                         .frame = {size.width, size.height},
                                         .reduceBorders = style.reducesBorders,
                                         .carriesWatermark = drawsWatermark(style.watermark) && carriesWatermark(0, 1),
                                         .alwaysFindsFaces = style.showsFaces});
    auto image = frame ? frame->copyImage() : nullptr;
    if (!image)
        return Error{ErrorCode::Unsupported, photo.path,
                     localized("{}: no frame could be made of it", photo.path.native())};
    if (style.showsFaces)
        drawFaces(*image, *frame);
    auto picture = pngOf(platform::NSImage(std::move(image), {}).pngData());
    if (!picture)
        return picture.error();
    return Frame{*std::move(picture), size, frame->faces.size()};
}

std::optional<Color> averageColorOf(const std::filesystem::path& file)
{
    const auto color = MORImageCategory::averageColorOfImageAtURL(NSURL::fileURLWithPath(file.native(), false));
    if (!std::isfinite(color.red) || !std::isfinite(color.green) || !std::isfinite(color.blue))
        return std::nullopt;
    return Color{color.red, color.green, color.blue};
}

Result<Bytes> fittedPicture(const std::filesystem::path& file, Size box)
{
    platform::NSError error;
    const auto source = platform::CGImageSource::createWithURL(NSURL::fileURLWithPath(file.native(), false), &error);
    const auto properties = source ? source->copyPropertiesAtIndex(&error) : std::nullopt;
    if (!properties)
        return errorOf(error, file);
    double width = static_cast<double>(properties->pixelWidth);
    double height = static_cast<double>(properties->pixelHeight);
    if (properties->orientation.value_or(1) >= 5)
        std::swap(width, height);
    // Beyond its own size it is not decoded.
    const double scale = std::min(box.width / width, box.height / height);
    auto image = source->createThumbnailAtIndex(
        {.maxPixelSize = std::max(width, height) * scale, .withTransform = true}, &error);
    if (!image)
        return errorOf(error, file);
    return pngOf(platform::NSImage(std::move(image), {}).pngData());
}

Result<Bytes> pictureAsPNG(std::span<const std::byte> picture)
{
    platform::NSError error;
    const auto image = platform::NSImage::imageWithData(dataOf(picture), &error);
    if (!image || !image->render())
        return Error{ErrorCode::Unsupported, {}, localized("this is no picture that can be read")};
    return pngOf(image->pngData());
}

} // namespace stillora
