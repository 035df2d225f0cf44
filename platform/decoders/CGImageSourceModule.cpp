#include "platform/decoders/HEIFPixels.h"
#include "platform/decoders/ImageDecoder.h"
#include "platform/decoders/ImageOrientation.h"
#include "platform/decoders/PNGPixels.h"
#include "platform/decoders/WebPPixels.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/picturefiles/EXIF.h"
#include "platform/picturefiles/EXIFBlocks.h"
#include "platform/picturefiles/HEIFContainer.h"
#include "platform/picturefiles/PNGHeader.h"
#include "platform/picturefiles/PictureEnd.h"
#include "platform/vips/PictureLibrary.h"
#include "platform/vips/module/PictureModule.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform {

namespace {

int64_t readFile(void* context, int64_t offset, void* bytes, int64_t count)
{
    return static_cast<const ImageFile*>(context)->readAt(static_cast<size_t>(offset), static_cast<uint8_t*>(bytes),
                                                          static_cast<size_t>(count));
}

struct ClosePicture {
    void operator()(void* picture) const { pictureLibrary()->close(picture); }
};

/// Decodes with the library of rarer formats.
class ModuleDecoder final : public ImageDecoder {
public:
    ModuleDecoder(std::unique_ptr<ImageFile> imageFile, std::string_view imageFormat)
        : ImageDecoder(std::move(imageFile), imageFormat), format_(imageFormat),
          isHEIF_(imageFormat == "heic" || imageFormat == "avif"), source_{&file(),
                                                                           static_cast<int64_t>(file().length()),
                                                                           readFile}
    {}

    bool isCutOff() override
    {
        // The last chunk's name and checksum.
        constexpr std::array<uint8_t, 8> kPNGEnd = {'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
        if (format_ == "png")
            return !hasMarkBehind(file(), 0, kPNGEnd);
        return format_ == "gif" && !hasWholeGIFPicture(file());
    }

private:
    bool openPicture(NSError* error)
    {
        const PictureModule* const library = pictureLibrary();
        if (!library)
            return failDecoding(error, localized("cannot be decoded: the image library does not start"));
        header_ = {};
        picture_.reset(library->open(format_.c_str(), &source_, &header_));
        return picture_ != nullptr || failDecoding(error, localized("is damaged: its header cannot be read"));
    }

    bool readProperties(Properties& properties, NSError* error) override
    {
        // The library would follow them for hours.
        if (hasTangledEXIF(file(), format_))
            return failDecoding(error, localized("is damaged: its header cannot be read"));
        if (!openPicture(error))
            return false;
        properties.pixelWidth = header_.width;
        properties.pixelHeight = header_.height;
        EXIF exif = parseEXIF({header_.exif, header_.exifLength});
        properties.origin = format_ == "tiff" ? readTIFFOrigin(file()) : std::move(exif.origin);
        if (!isHEIF_) {
            properties.orientation = exif.orientation;
            if (!properties.orientation && header_.orientation >= 1 && header_.orientation <= 8)
                properties.orientation = header_.orientation;
        }
        if (exif.isAdobeRGB)
            space_ = ColorDescription::kAdobeRGB;
        if (format_ == "png")
            properties.dpi = readPNG();
        if (isHEIF_)
            readHEIF();
        if (format_ == "webp")
            webp_ = WebPPixels::inFile(file());
        if (!properties.dpi)
            properties.dpi = exif.dpi;
        constexpr double kMillimetresPerInch = 25.4;
        if (!properties.dpi && header_.hasResolution)
            properties.dpi = header_.pixelsPerMillimetre * kMillimetresPerInch;
        return true;
    }

    /// Keeps what a PNG file says of its colours; dots an inch.
    std::optional<double> readPNG()
    {
        png_ = readPNGHeader(file());
        if (png_.codes)
            codes_ = *png_.codes;
        if (png_.isSRGB)
            space_.reset();
        else if (png_.space)
            space_ = png_.space;
        pixels_ = PNGPixels::inFile(png_);
        return png_.dpi;
    }

    /// Half as long as unpacking a byte it takes to make one of it that is shown, and passes take as long as all again.
    /// Texts are unpacked alone, which is twice as quick.
    DecodingCost costOfPNG() const
    {
        const uint64_t stored = pixelCount() * png_.bytesPerPixel;
        const uint64_t work = stored + pixelCount() * (png_.hasPalette ? 3 : png_.bytesPerPixel) / 2;
        const uint64_t ofTexts = png_.textBytes / 2;
        if (png_.isInterlaced)
            return {stored, 2 * work + ofTexts};
        return {pixels_ ? pixels_->inflatedBytes() : 0, work + ofTexts};
    }

    void readHEIF()
    {
        heif_ = readHEIFPicture(file());
        // Where the library sees another picture than this, it knows better.
        if (heif_ && (heif_->shownWidth() != header_.width || heif_->shownHeight() != header_.height))
            heif_.reset();
    }

    DecodingCost cost() override
    {
        // Measured with pictures of 256 million pixels; what is not decoded whole takes only time.
        struct Rate {
            std::string_view format;
            uint64_t memory;
            uint64_t work;
        };
        static constexpr std::array<Rate, 5> kRates{
            {{"webp", 8, 4}, {"gif", 4, 1}, {"heic", 7, 5}, {"avif", 7, 5}, {"tiff", 0, 3}}};
        if (format_ == "png")
            return costOfPNG();
        const auto* const rate = std::ranges::find(kRates, format_, &Rate::format);
        return rate == kRates.end() ? DecodingCost{}
                                    : DecodingCost{pixelCount() * rate->memory, pixelCount() * rate->work};
    }

    bool decode(size_t width, size_t height, CGImage& image, NSError* error) override
    {
        if (!picture_ && !openPicture(error))
            return false;
        const bool succeeded = (pixels_ && decodePixels(*pixels_, width, height, image)) ||
                               (heif_ && decodeTiles(*heif_, width, height, image)) ||
                               (webp_ && decodePlanes(webp_->read(file()), width, height, image)) ||
                               decodeOpened(width, height, image, error);
        // Rows come in order and only once: to be asked again, the file is read again.
        picture_.reset();
        return succeeded;
    }

    /// False where the library has to see how far the file goes.
    bool decodePixels(const PNGPixels& pixels, size_t width, size_t height, CGImage& image)
    {
        ColorDescription colors = statedColors();
        colors.model = pixels.bands >= 3 ? ColorDescription::Model::RGB : ColorDescription::Model::Grey;
        RowCollector rows({pixels.width, pixels.height}, pixels.bands, pixels.hasAlpha(), {width, height},
                          pixels.depth);
        return rows.isReady() && pixels.read(file(), [&](const uint8_t* samples) {
            pixels.depth == 8 ? addRow<uint8_t>(&rows, samples) : addRow<uint16_t>(&rows, samples);
        }) && finish(rows.planes(), width, height, colors, image, nullptr);
    }

    bool decodeTiles(const HEIFPicture& picture, size_t width, size_t height, CGImage& image)
    {
        if (picture.quarterTurns % 2 != 0)
            std::swap(width, height);
        if (!decodePlanes(readHEIFPixels(file(), picture), width, height, image))
            return false;
        // As EXIF numbers them: upright, and turned so that a quarter, a half and three quarters to the left are due.
        static constexpr std::array kOrientations = {1, 8, 3, 6};
        image = uprightImage(std::move(image), kOrientations[picture.quarterTurns]);
        return true;
    }

    bool decodePlanes(const std::optional<ImagePlanes>& planes, size_t width, size_t height, CGImage& image)
    {
        if (!planes)
            return false;
        ColorDescription colors = statedColors();
        colors.model = planes->count == 3 ? ColorDescription::Model::RGB : ColorDescription::Model::Grey;
        return finish(*planes, width, height, colors, image, nullptr);
    }

    /// What has a first row is shown, as far as it goes; most formats give it without the rest.
    bool probe(NSError* error) override
    {
        if ((heif_ && hasHEIFPixels(file(), *heif_)) || (webp_ && webp_->hasFirstRows(file()))) {
            picture_.reset();
            return true;
        }
        if (!picture_ && !openPicture(error))
            return false;
        // Some are decoded whole for it all the same.
        const DecodingShare share(cost().memory);
        const bool hasRow =
            describe(error).has_value() && readRows(
                                               nullptr, [](void*, const void*) { return false; }, error);
        picture_.reset();
        return hasRow;
    }

    std::optional<PictureModuleRows> describe(NSError* error)
    {
        PictureModuleRows kind{};
        if (pictureLibrary()->describe(picture_.get(), &kind))
            return kind;
        failDecoding(error, localized("cannot be decoded: its colours are of a kind that is not known"));
        return std::nullopt;
    }

    bool readRows(void* context, bool (*takeRow)(void*, const void*), NSError* error)
    {
        return pictureLibrary()->read(picture_.get(), context, takeRow) > 0 ||
               failDecoding(error, localized("is damaged: no part of it can be decoded"));
    }

    ColorDescription statedColors()
    {
        ColorDescription colors;
        colors.profile.assign(header_.profile, header_.profile + header_.profileLength);
        const HEIFColors codes = isHEIF_ ? readHEIFColors(file()) : codes_;
        colors.primaries = codes.primaries;
        colors.transfer = codes.transfer;
        colors.space = space_;
        return colors;
    }

    bool decodeOpened(size_t width, size_t height, CGImage& image, NSError* error)
    {
        // Describing may do away with the header's profile.
        ColorDescription colors = statedColors();
        const auto kind = describe(error);
        if (!kind)
            return false;
        // The profile told of the numbers as they were.
        if (kind->isConverted)
            colors = {};
        colors.model = kind->colorBands == 4   ? ColorDescription::Model::CMYK
                       : kind->colorBands == 3 ? ColorDescription::Model::RGB
                                               : ColorDescription::Model::Grey;
        const size_t bands = kind->colorBands + (kind->hasAlpha ? 1 : 0);
        RowCollector rows({properties().pixelWidth, properties().pixelHeight}, bands, kind->hasAlpha, {width, height},
                          kind->depth);
        if (!rows.isReady())
            return failDecoding(error, localized("needs more memory than there is"));
        if (!readRows(&rows, kind->depth == 8 ? addRow<uint8_t> : addRow<uint16_t>, error))
            return false;
        return finish(rows.planes(), width, height, colors, image, error);
    }

    template <typename Sample>
    static bool addRow(void* rows, const void* samples)
    {
        static_cast<RowCollector*>(rows)->addRow(static_cast<const Sample*>(samples));
        return true;
    }

    const std::string format_;
    const bool isHEIF_;
    const PictureModuleFile source_;
    // What is known beside a profile, from the header.
    HEIFColors codes_;
    std::optional<ColorDescription::PowerSpace> space_;
    // Of a PNG file.
    PNGHeader png_;
    std::optional<PNGPixels> pixels_;
    std::optional<HEIFPicture> heif_;
    std::optional<WebPPixels> webp_;
    // Of the picture, while it is open.
    PictureModuleHeader header_{};
    std::unique_ptr<void, ClosePicture> picture_;
};

} // namespace

std::unique_ptr<CGImageSource> makeModuleDecoder(std::unique_ptr<ImageFile> file, std::string_view format)
{
    return std::make_unique<ModuleDecoder>(std::move(file), format);
}

} // namespace platform
