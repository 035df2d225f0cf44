#include "video/PhotoFrame.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/faces/CIDetector.h"
#include "video/FrameFailure.h"
#include "video/FramePlacement.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGImageSource;
using platform::CGPoint;
using platform::CGRect;
using platform::CGSize;
using platform::CVPixelBuffer;

namespace {

CGSize sizeOf(const CGImage& image)
{
    return {static_cast<double>(image.width), static_cast<double>(image.height)};
}

CGImagePtr makeThumbnail(const PhotoFrameOptions& options)
{
    const std::string name = options.photo ? options.photo->absoluteString() : "(null)";
    const auto source = options.photo ? CGImageSource::createWithURL(*options.photo) : nullptr;
    if (!source) {
        logFrameFailure(FrameFailure::NoSource, name);
        return nullptr;
    }
    auto image = source->createThumbnailAtIndex(
        {.maxPixelSize = thumbnailBound(options.photoSize, options.frame, options.reduceBorders),
         .withTransform = true});
    if (!image)
        logFrameFailure(FrameFailure::NoImage, name);
    return image;
}

std::vector<CGRect> findFaces(const PhotoFrameOptions& options, const CGImage& image)
{
    const CGSize size = sizeOf(image);
    // Only where the picture hangs over the frame can a face change its place.
    const bool isMovable = size.width > options.frame.width || size.height > options.frame.height;
    if (!options.alwaysFindsFaces && !(options.reduceBorders && isMovable))
        return {};
    const auto detector = platform::CIDetector::detectorOfTypeFace();
    return detector ? detector->featuresInImage(image) : std::vector<CGRect>{};
}

void drawWatermark(platform::CGBitmapContext& context, CGSize frame)
{
    const platform::TextAttributes attributes = watermarkAttributes(frame.height);
    const auto size = static_cast<int64_t>(attributes.fontSize);
    context.drawTextAtPoint("Created with Stillora for Mac", CGPoint{5, static_cast<double>(size + size / 2)},
                            attributes);
    context.drawTextAtPoint(STILLORA_WEB_ADDRESS, CGPoint{5, static_cast<double>(size / 4)}, attributes);
}

std::shared_ptr<CVPixelBuffer> makeBuffer(const PhotoFrameOptions& options)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    int32_t status = platform::CVPixelBufferCreate(static_cast<size_t>(options.frame.width),
                                                   static_cast<size_t>(options.frame.height),
                                                   platform::kCVPixelFormatType_32ARGB, &buffer);
    if (status == platform::kCVReturnSuccess)
        status = buffer->lockBaseAddress();
    if (status == platform::kCVReturnSuccess)
        return buffer;
    logFrameFailure(FrameFailure::NoBuffer, std::to_string(status));
    return nullptr;
}

} // namespace

platform::TextAttributes watermarkAttributes(double frameHeight)
{
    const auto size = static_cast<int64_t>(frameHeight / 10);
    return {.fontName = "Helvetica Neue Medium",
            .fontSize = static_cast<double>(size),
            .foregroundColor = {.red = 1, .green = 1, .blue = 1, .alpha = 0.25},
            .strokeColor = {.alpha = 0.5},
            .strokeWidth = size < 50 ? -1.0 : -3.0};
}

std::shared_ptr<platform::CGImage> PhotoFrame::copyImage() const
{
    if (buffer->lockBaseAddress() != platform::kCVReturnSuccess)
        return nullptr;
    auto image = std::make_shared<platform::CGImage>();
    image->width = buffer->width();
    image->height = buffer->height();
    image->bytesPerRow = buffer->bytesPerRow();
    image->pixels.assign(buffer->baseAddress(), buffer->baseAddress() + image->bytesPerRow * image->height);
    buffer->unlockBaseAddress();
    return image;
}

std::optional<PhotoFrame> renderPhotoFrame(const PhotoFrameOptions& options)
{
    PhotoFrame result;
    result.picture = makeThumbnail(options);
    if (!result.picture)
        return std::nullopt;
    result.faces = findFaces(options, *result.picture);

    result.buffer = makeBuffer(options);
    if (!result.buffer)
        return std::nullopt;
    CVPixelBuffer& buffer = *result.buffer;
    platform::CGBitmapContext context(buffer.baseAddress(), buffer.width(), buffer.height(), buffer.bytesPerRow());
    context.clearRect({{0, 0}, options.frame});
    const CGSize size = sizeOf(*result.picture);
    const CGRect face = options.reduceBorders ? unionOfFaces(result.faces) : CGRect{};
    result.origin = placement(size, face, options.frame);
    context.drawImage({result.origin, size}, *result.picture);
    if (options.carriesWatermark)
        drawWatermark(context, options.frame);
    buffer.unlockBaseAddress();
    return result;
}
