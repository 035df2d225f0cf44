#include "video/FrameProduction.h"

#include "platform/foundation/NSLog.h"
#include "platform/graphics/CGBitmapContext.h"
#include "platform/graphics/CGImageSource.h"
#include "platform/graphics/CIDetector.h"
#include "platform/system/NSWorkspace.h"
#include "util/MORImageCategory.h"
#include "video/FramePlacement.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGImageSource;
using platform::CGPoint;
using platform::CGRect;
using platform::CGSize;
using platform::CVPixelBuffer;

namespace {

constexpr const char* kOperation = "-[morStilloraVideoCreator _fillBufferArrayUsingPhotos:maxVidSize:reduceBorders:]";
constexpr CGSize kIconSize = {53, 53};

/// What one rendering operation knows.
struct FrameJob {
    VideoStageContext& context;
    MORPhotoPtr photo;
    size_t index;
    size_t count;
    CGSize frame;
    bool reduceBorders;
};

CGSize sizeOf(const CGImage& image)
{
    return {static_cast<double>(image.width), static_cast<double>(image.height)};
}

CGImagePtr makeThumbnail(const FrameJob& job, const std::optional<platform::NSURL>& url)
{
    const std::string name = url ? url->absoluteString() : "(null)";
    const auto source = url ? CGImageSource::createWithURL(*url) : nullptr;
    if (!source) {
        platform::logFailure(kOperation, "could not instantiate image source for URL: " + name);
        return nullptr;
    }
    const CGImageSource::ThumbnailOptions options = {
        .maxPixelSize = thumbnailBound(job.photo->size(), job.frame, job.reduceBorders), .withTransform = true};
    auto image = source->createThumbnailAtIndex(options);
    if (!image)
        platform::logFailure(kOperation, "img couldn't be created for " + name);
    return image;
}

/// Only where the picture hangs over the frame can a face change its place.
CGRect faceOf(const FrameJob& job, const CGImage& image)
{
    const CGSize size = sizeOf(image);
    if (!job.reduceBorders || (size.width <= job.frame.width && size.height <= job.frame.height))
        return {};
    const auto detector = platform::CIDetector::detectorOfTypeFace();
    return detector ? unionOfFaces(detector->featuresInImage(image)) : CGRect{};
}

void drawWatermark(platform::CGBitmapContext& context, CGSize frame)
{
    const auto size = static_cast<int64_t>(frame.height / 10);
    const platform::TextAttributes attributes = {.fontName = "Helvetica Neue Medium",
                                                 .fontSize = static_cast<double>(size),
                                                 .foregroundColor = {.red = 1, .green = 1, .blue = 1, .alpha = 0.25},
                                                 .strokeColor = {.alpha = 0.5},
                                                 .strokeWidth = size < 50 ? -1.0 : -3.0};
    context.drawTextAtPoint("Created with Stillora for Mac", CGPoint{5, static_cast<double>(size + size / 2)},
                            attributes);
    context.drawTextAtPoint(STILLORA_WEB_ADDRESS, CGPoint{5, static_cast<double>(size / 4)}, attributes);
}

std::shared_ptr<CVPixelBuffer> makeBuffer(const FrameJob& job)
{
    std::shared_ptr<CVPixelBuffer> buffer;
    const platform::NSURL spillFolder = job.context.temporaryURL();
    int32_t status =
        platform::CVPixelBufferCreate(static_cast<size_t>(job.frame.width), static_cast<size_t>(job.frame.height),
                                      platform::kCVPixelFormatType_32ARGB, &spillFolder, &buffer);
    if (status == platform::kCVReturnSuccess)
        status = buffer->lockBaseAddress();
    if (status == platform::kCVReturnSuccess)
        return buffer;
    platform::logFailure(kOperation, "pixelbuffer couldn't be created; " + std::to_string(status));
    return nullptr;
}

platform::NSImagePtr makeIcon(const CGImagePtr& image, const std::optional<platform::NSURL>& url)
{
    if (auto icon = MORImageCategory::initWithCGImage(image, kIconSize))
        return icon;
    return platform::NSWorkspace::sharedWorkspace().iconForFile(url ? url->pathExtension() : "");
}

void render(const FrameJob& job)
{
    if (job.context.isCancelled())
        return;
    const auto url = job.photo->photoURL();
    const CGImagePtr image = makeThumbnail(job, url);
    if (!image)
        return;
    const CGRect face = faceOf(job, *image);

    auto buffer = makeBuffer(job);
    if (!buffer)
        return;
    platform::CGBitmapContext context(buffer->baseAddress(), buffer->width(), buffer->height(), buffer->bytesPerRow());
    context.clearRect({{0, 0}, job.frame});
    const CGSize size = sizeOf(*image);
    context.drawImage({placement(size, face, job.frame), size}, *image);
    if (carriesWatermark(job.index, job.count))
        drawWatermark(context, job.frame);
    buffer->unlockBaseAddress();

    auto icon = makeIcon(image, url);
    if (job.context.isCancelled())
        return;
    // Gone once the writer has ended.
    if (const auto frames = job.context.imageBuffers())
        frames->append({std::move(buffer), std::move(icon), job.photo->fileSize(), job.index});
}

} // namespace

void fillBufferArray(VideoStageContext& context, const PhotoList& photos, CGSize maxVidSize, bool reduceBorders)
{
    context.setImageBuffers(std::make_shared<FrameList>());
    std::unordered_map<const MORPhoto*, size_t> firstPlaces;
    for (size_t i = 0; i < photos.size(); ++i)
        firstPlaces.try_emplace(photos[i].get(), i);
    for (const MORPhotoPtr& photo : photos) {
        if (context.isCancelled())
            return;
        context.bufferCreationQ().addOperationWithBlock(
            [job = FrameJob{context, photo, firstPlaces.at(photo.get()), photos.size(), maxVidSize, reduceBorders}] {
                render(job);
            });
    }
}
