#include "util/MORImageCategory.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/system/NSPasteboard.h"
#include "util/AverageColor.h"

#include <memory>
#include <utility>

using platform::CGContext;
using platform::CGImagePtr;
using platform::CGImageSource;
using platform::CGRect;
using platform::CGSize;
using platform::NSBitmapImageFileType;
using platform::NSBitmapImageRep;
using platform::NSColor;
using platform::NSData;
using platform::NSImage;
using platform::NSImagePtr;
using platform::NSPasteboard;

namespace MORImageCategory {

namespace {

constexpr double kMaxThumbnailSide = 48;
constexpr std::string_view kPasteboardName = "morimagecategory";

CGImagePtr samplingThumbnail(const platform::NSURL& url)
{
    static const CGImageSource::ThumbnailOptions options = {.maxPixelSize = kMaxThumbnailSide};
    const auto source = CGImageSource::createWithURL(url);
    return source ? source->createThumbnailAtIndex(options) : nullptr;
}

} // namespace

NSColor averageColorOfImageAtURL(const platform::NSURL& url)
{
    if (auto thumbnail = samplingThumbnail(url)) {
        const CGSize bounds = {static_cast<double>(thumbnail->width), static_cast<double>(thumbnail->height)};
        const NSBitmapImageRep bitmap(std::move(thumbnail));
        return averageColorOfBitmap(&bitmap, bounds);
    }
    return averageColorOfImage(NSImage::imageWithContentsOfURL(url).get());
}

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
    auto fitted = NSImage::imageWithSize(size, CGContext::Origin::LowerLeft, [image](CGContext& context, CGRect rect) {
        context.drawImage(rect, *image);
        return true;
    });
    // Drawn at once, so that a small image does not keep a large one alive.
    (void)fitted->render();
    return fitted;
}

std::optional<NSData> representationForFileType(const NSImage& image, NSBitmapImageFileType fileType,
                                                double withCompression)
{
    auto tiff = image.TIFFRepresentation();
    const auto bitmap = tiff ? NSBitmapImageRep::imageRepWithData(std::move(*tiff)) : std::nullopt;
    return bitmap ? bitmap->representationUsingType(fileType, {.compressionFactor = withCompression}) : std::nullopt;
}

std::optional<NSData> JPEGRepresentationWithCompression(const NSImage& image, double compression)
{
    return representationForFileType(image, NSBitmapImageFileType::JPEG, compression);
}

std::optional<NSData> JPEG2000RepresentationWithCompression(const NSImage& image, double compression)
{
    return representationForFileType(image, NSBitmapImageFileType::JPEG2000, compression);
}

std::optional<NSData> PNGRepresentation(const NSImage& image)
{
    return representationForFileType(image, NSBitmapImageFileType::PNG, 1);
}

std::optional<NSData> GIFRepresentation(const NSImage& image)
{
    return representationForFileType(image, NSBitmapImageFileType::GIF, 1);
}

std::optional<NSData> BMPRepresentation(const NSImage& image)
{
    return representationForFileType(image, NSBitmapImageFileType::BMP, 1);
}

std::optional<NSData> dataForPboardType(const NSImage& image, std::string_view type)
{
    const auto pasteboard = NSPasteboard::pasteboardWithName(kPasteboardName);
    pasteboard->declareTypes({platform::kNSPasteboardTypeTIFF});
    (void)pasteboard->setDataForType(image.TIFFRepresentation(), platform::kNSPasteboardTypeTIFF);
    auto data = pasteboard->dataForType(type);
    pasteboard->releaseGlobally();
    return data;
}

std::optional<NSData> PDFRepresentation(const NSImage& image)
{
    return dataForPboardType(image, platform::kNSPasteboardTypePDF);
}

} // namespace MORImageCategory
