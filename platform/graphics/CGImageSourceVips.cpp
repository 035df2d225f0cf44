#include "platform/bytes/ByteReader.h"
#include "platform/graphics/EXIF.h"
#include "platform/graphics/HEIFContainer.h"
#include "platform/graphics/ImageDecoder.h"
#include "platform/graphics/VipsLibrary.h"

#include <vips/vips.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace platform {

namespace {

struct Unreference {
    void operator()(void* object) const { g_object_unref(object); }
};
using ImagePtr = std::unique_ptr<VipsImage, Unreference>;
using RegionPtr = std::unique_ptr<VipsRegion, Unreference>;
using SourcePtr = std::unique_ptr<VipsSourceCustom, Unreference>;

/// The library's functions.
#define STILLORA_VIPS_FUNCTIONS(X)                                                                                     \
    X(cast)                                                                                                            \
    X(colourspace)                                                                                                     \
    X(error_clear)                                                                                                     \
    X(gifload_source)                                                                                                  \
    X(heifload_source)                                                                                                 \
    X(image_get_bands)                                                                                                 \
    X(image_get_blob)                                                                                                  \
    X(image_get_format)                                                                                                \
    X(image_get_height)                                                                                                \
    X(image_get_int)                                                                                                   \
    X(image_get_interpretation)                                                                                        \
    X(image_get_typeof)                                                                                                \
    X(image_get_width)                                                                                                 \
    X(image_get_xres)                                                                                                  \
    X(pngload_source)                                                                                                  \
    X(region_new)                                                                                                      \
    X(region_prepare)                                                                                                  \
    X(source_custom_new)                                                                                               \
    X(tiffload_source)                                                                                                 \
    X(webpload_source)

STILLORA_VIPS_TABLE(STILLORA_VIPS_FUNCTIONS)
#undef STILLORA_VIPS_FUNCTIONS

/// Lets the library read a file of ours in its own order.
struct Reader {
    const ImageFile* file;
    gint64 position = 0;
};

gint64 readFrom(VipsSourceCustom*, void* bytes, gint64 length, Reader* reader)
{
    const ssize_t got = reader->file->readAt(static_cast<size_t>(reader->position), static_cast<uint8_t*>(bytes),
                                             static_cast<size_t>(length));
    if (got > 0)
        reader->position += got;
    return got;
}

gint64 seekTo(VipsSourceCustom*, gint64 offset, int whence, Reader* reader)
{
    gint64 position = offset;
    if (whence == SEEK_CUR)
        position += reader->position;
    else if (whence == SEEK_END)
        position += static_cast<gint64>(reader->file->length());
    if (position < 0)
        return -1;
    return reader->position = position;
}

std::vector<uint8_t> blob(VipsImage* image, const char* name)
{
    const void* bytes = nullptr;
    size_t length = 0;
    if (vips().image_get_typeof(image, name) == 0 || vips().image_get_blob(image, name, &bytes, &length) != 0) {
        vips().error_clear();
        return {};
    }
    const auto* const first = static_cast<const uint8_t*>(bytes);
    return {first, first + length};
}

std::optional<int> integer(VipsImage* image, const char* name)
{
    int value = 0;
    if (vips().image_get_typeof(image, name) == 0 || vips().image_get_int(image, name, &value) != 0) {
        vips().error_clear();
        return std::nullopt;
    }
    return value;
}

/// Dots an inch by the chunk "pHYs", which the library reads without telling whether it was there.
std::optional<double> readPNGResolution(const ImageFile& file)
{
    constexpr size_t kSignature = 8;
    constexpr size_t kChunkFrame = 12;
    // Files of thousands of chunks before the pixels are made to keep readers busy.
    constexpr int kMostChunks = 256;
    size_t offset = kSignature;
    for (int i = 0; i < kMostChunks; ++i) {
        std::array<uint8_t, 17> chunk{};
        if (file.readAt(offset, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size()))
            return std::nullopt;
        const std::string_view name(reinterpret_cast<const char*>(chunk.data()) + 4, 4);
        if (name == "pHYs") {
            constexpr double kMetresPerInch = 0.0254;
            constexpr uint8_t kMetre = 1;
            const uint32_t perMetre = bigEndian32(chunk, 8).value_or(0);
            if (chunk[16] != kMetre || perMetre == 0)
                return std::nullopt;
            return perMetre * kMetresPerInch;
        }
        if (name == "IDAT")
            return std::nullopt;
        offset += kChunkFrame + bigEndian32(chunk, 0).value_or(0);
    }
    return std::nullopt;
}

class VipsDecoder final : public ImageDecoder {
public:
    VipsDecoder(std::unique_ptr<ImageFile> imageFile, std::string_view imageFormat)
        : ImageDecoder(std::move(imageFile), imageFormat), isHEIF_(imageFormat == "heic" || imageFormat == "avif"),
          isPNG_(imageFormat == "png"), load_(loaderOf(imageFormat))
    {}

private:
    using Loader = VipsImage* (*)(VipsSource*);

    template <auto load>
    static VipsImage* open(VipsSource* source)
    {
        VipsImage* image = nullptr;
        return (vips().*load)(source, &image, "access", VIPS_ACCESS_SEQUENTIAL, static_cast<void*>(nullptr)) == 0
                   ? image
                   : nullptr;
    }

    /// Named, not found by content: no other loader can be talked into opening the file.
    static Loader loaderOf(std::string_view format)
    {
        if (format == "png")
            return open<&Vips::pngload_source>;
        if (format == "webp")
            return open<&Vips::webpload_source>;
        if (format == "tiff")
            return open<&Vips::tiffload_source>;
        if (format == "gif")
            return open<&Vips::gifload_source>;
        return open<&Vips::heifload_source>;
    }

    bool openImage(NSError* error)
    {
        if (!vips().isComplete)
            return failDecoding(error, "cannot be decoded: the image library does not start");
        reader_ = std::make_unique<Reader>(Reader{&file()});
        source_.reset(vips().source_custom_new());
        g_signal_connect(source_.get(), "read", G_CALLBACK(readFrom), reader_.get());
        g_signal_connect(source_.get(), "seek", G_CALLBACK(seekTo), reader_.get());
        image_.reset(load_(reinterpret_cast<VipsSource*>(source_.get())));
        vips().error_clear();
        return image_ != nullptr || failDecoding(error, "is damaged: its header cannot be read");
    }

    void closeImage()
    {
        image_.reset();
        source_.reset();
        reader_.reset();
    }

    bool readProperties(Properties& properties, NSError* error) override
    {
        if (!openImage(error))
            return false;
        properties.pixelWidth = static_cast<size_t>(vips().image_get_width(image_.get()));
        properties.pixelHeight = static_cast<size_t>(vips().image_get_height(image_.get()));
        const EXIF exif = parseEXIF(blob(image_.get(), VIPS_META_EXIF_NAME));
        if (!isHEIF_) {
            properties.orientation = exif.orientation;
            const auto tag = integer(image_.get(), VIPS_META_ORIENTATION);
            if (!properties.orientation && tag && *tag >= 1 && *tag <= 8)
                properties.orientation = tag;
        }
        if (isPNG_)
            properties.dpi = readPNGResolution(file());
        if (!properties.dpi)
            properties.dpi = exif.dpi;
        constexpr double kMillimetresPerInch = 25.4;
        if (!properties.dpi && vips().image_get_typeof(image_.get(), VIPS_META_RESOLUTION_UNIT) != 0)
            properties.dpi = vips().image_get_xres(image_.get()) * kMillimetresPerInch;
        return true;
    }

    bool decode(size_t width, size_t height, CGImage& image, ColorDescription& colors, NSError* error) override
    {
        if (!image_ && !openImage(error))
            return false;
        const bool succeeded = decodeOpened(width, height, image, colors, error);
        // Rows come in order and only once: to be asked again, the file is opened again.
        closeImage();
        vips().error_clear();
        return succeeded;
    }

    bool decodeOpened(size_t width, size_t height, CGImage& image, ColorDescription& colors, NSError* error)
    {
        colors.profile = blob(image_.get(), VIPS_META_ICC_NAME);
        if (colors.profile.empty() && isHEIF_) {
            const HEIFColors stated = readHEIFColors(file());
            colors.primaries = stated.primaries;
            colors.transfer = stated.transfer;
        }
        if (!simplify(colors))
            return failDecoding(error, "cannot be decoded: its colours are of a kind that is not known");

        const auto bands = static_cast<size_t>(vips().image_get_bands(image_.get()));
        const bool isInk = vips().image_get_interpretation(image_.get()) == VIPS_INTERPRETATION_CMYK;
        const bool isColor = bands >= 3;
        const size_t colorBands = isInk ? 4 : isColor ? 3 : 1;
        const bool hasAlpha = !isInk && bands > colorBands;
        const size_t used = colorBands + (hasAlpha ? 1 : 0);
        colors.model = isInk     ? ColorDescription::Model::CMYK
                       : isColor ? ColorDescription::Model::RGB
                                 : ColorDescription::Model::Grey;

        const PixelSize picture = {properties().pixelWidth, properties().pixelHeight};
        RowCollector rows(picture, used, hasAlpha, {width, height});
        if (!rows.isReady())
            return failDecoding(error, "needs more memory than there is");
        if (!collect(rows, picture, bands, used))
            return failDecoding(error, "is damaged: no part of it can be decoded");
        return scalePlanes(rows.planes(), width, height, image) || failDecoding(error, "cannot be scaled to this size");
    }

    /// Brings rare kinds of pixels to brightness, red, green and blue, or ink, of 8 or 16 bits.
    bool simplify(ColorDescription& colors)
    {
        const auto kind = vips().image_get_interpretation(image_.get());
        const bool isKnown = kind == VIPS_INTERPRETATION_sRGB || kind == VIPS_INTERPRETATION_RGB ||
                             kind == VIPS_INTERPRETATION_B_W || kind == VIPS_INTERPRETATION_RGB16 ||
                             kind == VIPS_INTERPRETATION_GREY16 || kind == VIPS_INTERPRETATION_CMYK;
        const auto format = vips().image_get_format(image_.get());
        const bool isWhole = format == VIPS_FORMAT_UCHAR || format == VIPS_FORMAT_USHORT;
        if (isKnown && isWhole)
            return true;
        VipsImage* simple = nullptr;
        if (kind == VIPS_INTERPRETATION_MULTIBAND || (isKnown && !isWhole)) {
            if (vips().cast(image_.get(), &simple, VIPS_FORMAT_UCHAR, static_cast<void*>(nullptr)) != 0)
                return false;
        } else {
            if (vips().colourspace(image_.get(), &simple, VIPS_INTERPRETATION_sRGB, static_cast<void*>(nullptr)) != 0)
                return false;
            // The profile told of the numbers as they were.
            colors.profile.clear();
            ImagePtr whole(simple);
            simple = nullptr;
            if (vips().cast(whole.get(), &simple, VIPS_FORMAT_UCHAR, static_cast<void*>(nullptr)) != 0)
                return false;
        }
        image_.reset(simple);
        return true;
    }

    /// Reads rows until the end or the first damage; whether there was one at least.
    bool collect(RowCollector& rows, PixelSize picture, size_t bands, size_t used)
    {
        const RegionPtr region(vips().region_new(image_.get()));
        const bool isWide = vips().image_get_format(image_.get()) == VIPS_FORMAT_USHORT;
        std::vector<uint8_t> narrow(isWide || used != bands ? picture.width * used : 0);
        // Strips as high as a usual tile, so that tiles are decoded once.
        constexpr int kStrip = 16;
        const auto height = static_cast<int>(picture.height);
        for (int top = 0; top < height; top += kStrip) {
            const VipsRect strip = {0, top, static_cast<int>(picture.width), std::min(kStrip, height - top)};
            if (vips().region_prepare(region.get(), &strip) != 0)
                return top > 0;
            for (int y = top; y < top + strip.height; ++y) {
                // What VIPS_REGION_ADDR says for the first column, without the function that it calls.
                const uint8_t* samples =
                    region->data + static_cast<size_t>(y - region->valid.top) * static_cast<size_t>(region->bpl);
                if (!narrow.empty()) {
                    for (size_t x = 0; x < picture.width; ++x)
                        for (size_t band = 0; band < used; ++band) {
                            const size_t from = x * bands + band;
                            narrow[x * used + band] =
                                isWide
                                    ? static_cast<uint8_t>(
                                          (reinterpret_cast<const uint16_t*>(samples)[from] * 255u + 32767u) / 65535u)
                                    : samples[from];
                        }
                    samples = narrow.data();
                }
                rows.addRow(samples);
            }
        }
        return true;
    }

    const bool isHEIF_;
    const bool isPNG_;
    const Loader load_;
    // In the order in which each needs the one before.
    std::unique_ptr<Reader> reader_;
    SourcePtr source_;
    ImagePtr image_;
};

} // namespace

std::unique_ptr<CGImageSource> makeVipsDecoder(std::unique_ptr<ImageFile> file, std::string_view format)
{
    return std::make_unique<VipsDecoder>(std::move(file), format);
}

} // namespace platform
