#include "platform/decoders/ImageDecoder.h"

#include "platform/decoders/ImageOrientation.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/picturefiles/ImageFormat.h"
#include "platform/picturefiles/TIFFHeader.h"
#include "platform/pixels/PixelRecycling.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace platform {

namespace {

std::unique_ptr<CGImageSource> createWithFile(std::unique_ptr<ImageFile> file, NSError* error)
{
    if (!file)
        return nullptr;
    const std::string name = file->name();
    const auto start = file->first(kImageFormatBytes);
    const std::string_view format = imageFormatOfContent(start);
    const auto tiff = format == "tiff" ? readTIFFHeader(*file) : std::nullopt;
    const bool isRaw = tiff ? tiff->isCameraRaw : isCameraRawContent(start);
    if (format.empty() || isRaw) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError,
             isRaw ? localized("{} is a camera's raw file, which has to be developed and saved as a picture", {name})
             : file->length() == 0 ? localized("{} is empty", {name})
                                   : localized("{} is no picture of a known format", {name}));
        return nullptr;
    }
    if (format == "jpeg")
        return makeJPEGDecoder(std::move(file));
    // Of colour differences, the image library reads only those of JPEG.
    const bool hasPlainDifferences = tiff && tiff->hasColorDifferences && !tiff->isJPEG;
    if (format == "bmp" || format == "jp2" || hasPlainDifferences)
        return makeAVCodecDecoder(std::move(file), format);
    return makeModuleDecoder(std::move(file), format);
}

} // namespace

std::unique_ptr<CGImageSource> CGImageSource::createWithURL(const NSURL& url, NSError* error)
{
    return createWithFile(ImageFile::open(url, error), error);
}

std::unique_ptr<CGImageSource> CGImageSource::createWithData(NSData data, const std::string& name, NSError* error)
{
    return createWithFile(ImageFile::withData(std::move(data), name, error), error);
}

CGSize CGImageSource::Properties::size() const
{
    constexpr double kPointsPerInch = 72;
    const double points = dpi && *dpi > 0 ? kPointsPerInch / *dpi : 1;
    return {static_cast<double>(pixelWidth) * points, static_cast<double>(pixelHeight) * points};
}

ImageDecoder::ImageDecoder(std::unique_ptr<ImageFile> file, std::string_view format)
    : file_(std::move(file)), format_(format)
{}

bool ImageDecoder::failDecoding(NSError* error, std::string_view what) const
{
    return fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError, file_->name() + " " + std::string(what));
}

std::optional<CGImageSource::Properties> ImageDecoder::copyPropertiesAtIndex(NSError* error)
{
    if (hasProperties_)
        return properties_;
    Properties properties;
    if (!readProperties(properties, error))
        return std::nullopt;
    if (properties.pixelWidth == 0 || properties.pixelHeight == 0) {
        failDecoding(error, localized("has no pixels"));
        return std::nullopt;
    }
    if (properties.pixelWidth > kMaxPixels / properties.pixelHeight) {
        failDecoding(error, localized("claims {} x {} pixels, which is too many",
                                      {std::to_string(properties.pixelWidth), std::to_string(properties.pixelHeight)}));
        return std::nullopt;
    }
    properties.format = format_;
    properties_ = std::move(properties);
    hasProperties_ = true;
    return properties_;
}

std::optional<DecodingCost> ImageDecoder::fairCost(NSError* error)
{
    const DecodingCost decoding = cost();
    if (const auto fault = faultOfCost(decoding, file_->length())) {
        failDecoding(error, *fault);
        return std::nullopt;
    }
    return decoding;
}

CGImagePtr ImageDecoder::createThumbnailAtIndex(const ThumbnailOptions& options, NSError* error)
{
    try {
        if (!copyPropertiesAtIndex(error))
            return nullptr;
        const auto cost = fairCost(error);
        if (!cost)
            return nullptr;
        const DecodingShare share(cost->memory);
        const PixelSize size = thumbnailSize({properties_.pixelWidth, properties_.pixelHeight}, options.maxPixelSize);
        CGImage image;
        image.pixels = PixelRecycling::take();
        if (!decode(size.width, size.height, image, error))
            return nullptr;
        if (options.withTransform)
            image = uprightImage(std::move(image), properties_.orientation.value_or(1));
        return shareRecycled(std::move(image));
    } catch (const std::bad_alloc&) {
        failDecoding(error, localized("needs more memory than there is"));
        return nullptr;
    }
}

bool ImageDecoder::canDecode(NSError* error)
{
    try {
        return copyPropertiesAtIndex(error) && fairCost(error) && probe(error);
    } catch (const std::bad_alloc&) {
        return failDecoding(error, localized("needs more memory than there is"));
    }
}

bool ImageDecoder::probe(NSError* error)
{
    // Small enough for every format's cheapest scale.
    constexpr double kProbePixels = 64;
    return createThumbnailAtIndex({kProbePixels, false}, error) != nullptr;
}

bool ImageDecoder::finish(const ImagePlanes& planes, size_t width, size_t height, const ColorDescription& colors,
                          CGImage& image, NSError* error) const
{
    // Brightness and colour differences of 8 bits are those of JPEG photos, of which there are most: they keep the
    // quick way.
    const bool isWide = planes.depth > 8 || (planes.family != ImagePlanes::Family::YUV && changesColors(colors));
    if (!isWide) {
        if (!scalePlanes(planes, width, height, image))
            return failDecoding(error, localized("cannot be scaled to this size"));
        convertToSRGB(image, colors);
        return true;
    }
    WideImage wide;
    if (!scalePlanes(planes, width, height, wide))
        return failDecoding(error, localized("cannot be scaled to this size"));
    convertToSRGB(wide, colors, image);
    return true;
}

PixelSize thumbnailSize(PixelSize picture, std::optional<double> maxPixelSize)
{
    const size_t longer = std::max(picture.width, picture.height);
    if (!maxPixelSize || *maxPixelSize >= static_cast<double>(longer))
        return picture;
    // A bound that is no number fails every comparison and becomes the least.
    const size_t bound = *maxPixelSize >= 1 ? static_cast<size_t>(*maxPixelSize) : 1;
    const auto scaled = [&](size_t side) {
        if (side == longer)
            return bound;
        const double nearest =
            std::floor(static_cast<double>(side) * static_cast<double>(bound) / static_cast<double>(longer) + 0.5);
        return std::max<size_t>(1, static_cast<size_t>(nearest));
    };
    return {scaled(picture.width), scaled(picture.height)};
}

RowCollector::RowCollector(PixelSize picture, size_t bands, bool hasAlpha, PixelSize wanted, unsigned depth)
    : picture_(picture), bands_(bands), hasAlpha_(hasAlpha), depth_(depth),
      factor_(std::clamp<size_t>(std::min(picture.width / wanted.width, picture.height / wanted.height) / 2, 1,
                                 SquareAverages::kLargestSide)),
      planeCount_(bands == 2 ? 4 : bands), planeWidth_((picture.width + factor_ - 1) / factor_),
      planeHeight_((picture.height + factor_ - 1) / factor_), bytesPerRow_(alignedRow(planeWidth_ * depth / 8)),
      memory_(ScratchMemory::take(ScratchMemory::Use::Planes, planeCount_ * bytesPerRow_ * planeHeight_)),
      squares_(factor_ > 1 ? picture.width : 0, bands, factor_)
{
    if (hasAlpha_)
        multiplied_.resize(bands_ * picture_.width);
    if (memory_)
        std::memset(memory_, 0, planeCount_ * bytesPerRow_ * planeHeight_);
}

void RowCollector::addRow(const uint8_t* samples)
{
    add(samples);
}

void RowCollector::addRow(const uint16_t* samples)
{
    add(samples);
}

template <typename Sample>
void RowCollector::add(const Sample* samples)
{
    if (nextRow_ >= picture_.height)
        return;
    if (hasAlpha_) {
        constexpr unsigned kMost = std::numeric_limits<Sample>::max();
        const Sample* from = samples;
        // Aligned for the wider kind, as long as both need.
        auto* const multiplied = reinterpret_cast<Sample*>(multiplied_.data());
        Sample* to = multiplied;
        for (size_t x = 0; x < picture_.width; ++x, from += bands_, to += bands_) {
            const unsigned alpha = from[bands_ - 1];
            for (size_t band = 0; band + 1 < bands_; ++band)
                to[band] = static_cast<Sample>((from[band] * alpha + kMost / 2) / kMost);
            to[bands_ - 1] = static_cast<Sample>(alpha);
        }
        samples = multiplied;
    }

    const size_t row = nextRow_++;
    if (factor_ == 1) {
        for (size_t plane = 0; plane < planeCount_; ++plane) {
            const size_t band = bands_ == 2 ? plane / 3 : plane;
            auto* const to = rowOfPlane<Sample>(plane, row);
            for (size_t x = 0; x < picture_.width; ++x)
                to[x] = samples[x * bands_ + band];
        }
        return;
    }
    squares_.addRow(samples);
    if (nextRow_ % factor_ != 0 && nextRow_ != picture_.height)
        return;
    std::array<Sample*, 4> rows{};
    for (size_t plane = 0; plane < planeCount_; ++plane)
        rows[plane] = rowOfPlane<Sample>(plane, row / factor_);
    if (bands_ == 2)
        squares_.finish<Sample>([&rows](size_t column, size_t band, Sample mean) {
            if (band == 0)
                rows[0][column] = rows[1][column] = rows[2][column] = mean;
            else
                rows[3][column] = mean;
        });
    else
        squares_.finish<Sample>([&rows](size_t column, size_t band, Sample mean) { rows[band][column] = mean; });
}

ImagePlanes RowCollector::planes() const
{
    ImagePlanes planes;
    planes.family = planeCount_ == 1 ? ImagePlanes::Family::Grey : ImagePlanes::Family::RGB;
    planes.depth = depth_;
    planes.width = planeWidth_;
    planes.height = planeHeight_;
    planes.shownWidth = static_cast<double>(picture_.width) / static_cast<double>(factor_);
    planes.shownHeight = static_cast<double>(picture_.height) / static_cast<double>(factor_);
    planes.count = planeCount_;
    for (size_t plane = 0; plane < planeCount_; ++plane)
        planes.planes[plane] = {memory_ + plane * planeHeight_ * bytesPerRow_, bytesPerRow_};
    return planes;
}

} // namespace platform
