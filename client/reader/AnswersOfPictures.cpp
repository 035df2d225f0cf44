#include "client/reader/Answers.h"

#include "client/text/ClientError.h"
#include "client/text/DataBytes.h"
#include "platform/decoders/CGImageSource.h"
#include "platform/files/NSURL.h"
#include "platform/graphics/NSImage.h"
#include "platform/pixels/ImageScaler.h"
#include "util/MORImageCategory.h"
#include "video/FramePlacement.h"
#include "video/PhotoFrame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace stillora {

namespace {

using platform::CGImage;
using platform::CGImagePtr;
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

Result<PictureAnswer> answerOf(const CGImagePtr& image)
{
    return PictureAnswer{*image, 0, {}};
}

} // namespace

std::optional<Color> answerTo(const ColorQuestion& question)
{
    const auto color =
        MORImageCategory::averageColorOfImageAtURL(NSURL::fileURLWithPath(question.file.native(), false));
    if (!std::isfinite(color.red) || !std::isfinite(color.green) || !std::isfinite(color.blue))
        return std::nullopt;
    return Color{color.red, color.green, color.blue};
}

Result<PictureAnswer> answerTo(const FittedQuestion& question)
{
    platform::NSError error;
    const auto source =
        platform::CGImageSource::createWithURL(NSURL::fileURLWithPath(question.file.native(), false), &error);
    const auto properties = source ? source->copyPropertiesAtIndex(&error) : std::nullopt;
    if (!properties)
        return errorOf(error, question.file);
    double width = static_cast<double>(properties->pixelWidth);
    double height = static_cast<double>(properties->pixelHeight);
    if (properties->orientation.value_or(1) >= 5)
        std::swap(width, height);
    // Beyond its own size it is not decoded.
    const double scale = std::min(question.box.width / width, question.box.height / height);
    const auto image = source->createThumbnailAtIndex(
        {.maxPixelSize = std::max(width, height) * scale, .withTransform = true}, &error);
    return image ? answerOf(image) : errorOf(error, question.file);
}

Result<PictureAnswer> answerTo(const PictureQuestion& question)
{
    platform::NSError error;
    const auto image = platform::NSImage::imageWithData(dataOf(question.picture), &error);
    const CGImagePtr pixels = image && image->render() ? image->image() : nullptr;
    if (!pixels)
        return Error{};
    return PictureAnswer{*pixels, 0, {image->size().width, image->size().height}};
}

Result<PictureAnswer> answerTo(const FrameQuestion& question)
{
    const auto frame = renderPhotoFrame({.photo = NSURL::fileURLWithPath(question.file.native(), false),
                                         .photoSize = {question.photoSize.width, question.photoSize.height},
                                         .frame = {question.frame.width, question.frame.height},
                                         .reduceBorders = question.reducesBorders,
                                         .carriesWatermark = question.carriesWatermark,
                                         .alwaysFindsFaces = question.showsFaces});
    const auto image = frame ? frame->copyImage() : nullptr;
    if (!image)
        return Error{};
    if (question.showsFaces)
        drawFaces(*image, *frame);
    const size_t lines = question.mostLines;
    platform::CGImage smaller;
    if (lines > 0 && image->height > lines) {
        if (!platform::scaleImage(*image, std::max<size_t>(1, image->width * lines / image->height), lines, smaller))
            return Error{};
        *image = std::move(smaller);
    }
    return PictureAnswer{std::move(*image), frame->faces.size(), {}};
}

} // namespace stillora
