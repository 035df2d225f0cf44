#include "platform/bytes/ByteReader.h"
#include "platform/decoders/EXIF.h"
#include "platform/decoders/HEIFContainer.h"
#include "platform/decoders/ImageDecoder.h"
#include "platform/vips/VipsLibrary.h"

#include <vips/vips.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <type_traits>
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

/// What the chunks before the pixels of a PNG file tell that the library reads without telling, or not at all.
struct PNGHeader {
    std::optional<double> dpi;
    /// Numbers of ITU-T H.273.
    std::optional<HEIFColors> codes;
    bool isSRGB = false;
    std::optional<ColorDescription::PowerSpace> space;
};

/// Takes what counts of one chunk, of which the first bytes are there.
void readPNGChunk(std::string_view name, std::span<const uint8_t> content, PNGHeader& header)
{
    const auto number = [&](size_t index) { return bigEndian32(content, 4 * index).value_or(0); };
    // Chromaticities and powers are stored as whole numbers.
    constexpr double kParts = 100000;
    if (name == "pHYs") {
        constexpr double kMetresPerInch = 0.0254;
        constexpr uint8_t kMetre = 1;
        if (content[8] == kMetre && number(0) > 0)
            header.dpi = number(0) * kMetresPerInch;
    } else if (name == "cICP") {
        header.codes = HEIFColors{content[0], content[1]};
    } else if (name == "sRGB") {
        header.isSRGB = true;
    } else if (name == "gAMA") {
        // Beyond these no picture can be told from black or white.
        constexpr double kLeast = 0.1;
        constexpr double kMost = 10;
        const double power = kParts / std::max(number(0), 1u);
        if (power >= kLeast && power <= kMost) {
            header.space = header.space.value_or(ColorDescription::PowerSpace{});
            header.space->power = power;
        }
    } else if (name == "cHRM") {
        header.space = header.space.value_or(ColorDescription::PowerSpace{});
        // White comes first, and last in ours.
        auto& places = header.space->chromaticities;
        for (size_t i = 0; i < places.size(); ++i)
            places[i] = number((i + 2) % places.size()) / kParts;
    }
}

PNGHeader readPNGHeader(const ImageFile& file)
{
    constexpr size_t kSignature = 8;
    constexpr size_t kChunkFrame = 12;
    constexpr size_t kNameEnd = 8;
    // Files of thousands of chunks before the pixels are made to keep readers busy.
    constexpr int kMostChunks = 256;
    PNGHeader header;
    size_t offset = kSignature;
    for (int i = 0; i < kMostChunks; ++i) {
        // As long as the longest that counts; the bytes of a shorter one are followed by those of the next.
        std::array<uint8_t, kNameEnd + 32> chunk{};
        if (file.readAt(offset, chunk.data(), chunk.size()) < static_cast<ssize_t>(kChunkFrame))
            break;
        const std::string_view name(reinterpret_cast<const char*>(chunk.data()) + 4, 4);
        if (name == "IDAT")
            break;
        readPNGChunk(name, std::span(chunk).subspan(kNameEnd), header);
        offset += kChunkFrame + bigEndian32(chunk, 0).value_or(0);
    }
    return header;
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
        if (exif.isAdobeRGB)
            space_ = ColorDescription::kAdobeRGB;
        if (isPNG_)
            properties.dpi = readPNG();
        if (!properties.dpi)
            properties.dpi = exif.dpi;
        constexpr double kMillimetresPerInch = 25.4;
        if (!properties.dpi && vips().image_get_typeof(image_.get(), VIPS_META_RESOLUTION_UNIT) != 0)
            properties.dpi = vips().image_get_xres(image_.get()) * kMillimetresPerInch;
        return true;
    }

    /// Keeps what a PNG file says of its colours; dots an inch.
    std::optional<double> readPNG()
    {
        const PNGHeader header = readPNGHeader(file());
        if (header.codes)
            codes_ = *header.codes;
        if (header.isSRGB)
            space_.reset();
        else if (header.space)
            space_ = header.space;
        return header.dpi;
    }

    bool decode(size_t width, size_t height, CGImage& image, NSError* error) override
    {
        if (!image_ && !openImage(error))
            return false;
        const bool succeeded = decodeOpened(width, height, image, error);
        // Rows come in order and only once: to be asked again, the file is opened again.
        closeImage();
        vips().error_clear();
        return succeeded;
    }

    ColorDescription statedColors()
    {
        ColorDescription colors;
        colors.profile = blob(image_.get(), VIPS_META_ICC_NAME);
        const HEIFColors codes = isHEIF_ ? readHEIFColors(file()) : codes_;
        colors.primaries = codes.primaries;
        colors.transfer = codes.transfer;
        colors.space = space_;
        return colors;
    }

    bool decodeOpened(size_t width, size_t height, CGImage& image, NSError* error)
    {
        ColorDescription colors = statedColors();
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
        const auto format = vips().image_get_format(image_.get());
        RowCollector rows(picture, used, hasAlpha, {width, height}, format == VIPS_FORMAT_UCHAR ? 8 : 16);
        if (!rows.isReady())
            return failDecoding(error, "needs more memory than there is");
        const bool isCollected = format == VIPS_FORMAT_UCHAR    ? collect<uint8_t>(rows, picture, bands, used)
                                 : format == VIPS_FORMAT_USHORT ? collect<uint16_t>(rows, picture, bands, used)
                                                                : collect<uint32_t>(rows, picture, bands, used);
        if (!isCollected)
            return failDecoding(error, "is damaged: no part of it can be decoded");
        return finish(rows.planes(), width, height, colors, image, error);
    }

    /// Brings rare kinds of pixels to brightness, red, green and blue, or ink, of 8, 16 or 32 bits.
    bool simplify(ColorDescription& colors)
    {
        const auto kind = vips().image_get_interpretation(image_.get());
        const bool isKnown = kind == VIPS_INTERPRETATION_sRGB || kind == VIPS_INTERPRETATION_RGB ||
                             kind == VIPS_INTERPRETATION_B_W || kind == VIPS_INTERPRETATION_RGB16 ||
                             kind == VIPS_INTERPRETATION_GREY16 || kind == VIPS_INTERPRETATION_CMYK ||
                             kind == VIPS_INTERPRETATION_MULTIBAND;
        const auto format = vips().image_get_format(image_.get());
        if (isKnown)
            // Numbers with a sign, or fractions, of which nothing says where white is, are refused.
            return format == VIPS_FORMAT_UCHAR || format == VIPS_FORMAT_USHORT || format == VIPS_FORMAT_UINT;
        VipsImage* simple = nullptr;
        if (vips().colourspace(image_.get(), &simple, VIPS_INTERPRETATION_sRGB, static_cast<void*>(nullptr)) != 0)
            return false;
        // The profile told of the numbers as they were.
        colors = {};
        const ImagePtr whole(simple);
        simple = nullptr;
        if (vips().cast(whole.get(), &simple, VIPS_FORMAT_UCHAR, static_cast<void*>(nullptr)) != 0)
            return false;
        image_.reset(simple);
        return true;
    }

    /// Reads rows until the end or the first damage; whether there was one at least.
    template <typename Stored>
    bool collect(RowCollector& rows, PixelSize picture, size_t bands, size_t used)
    {
        using Sample = std::conditional_t<sizeof(Stored) == 1, uint8_t, uint16_t>;
        const RegionPtr region(vips().region_new(image_.get()));
        // Of HEIC and AVIF, 10 or 12 bits come as the upper ones of 16: their own first bits fill what is left, so that
        // white is the most.
        const int depth = integer(image_.get(), "heif-bitdepth").value_or(16);
        const int fill = sizeof(Stored) == 2 && depth > 8 && depth < 16 ? depth : 0;
        const bool isReady = std::is_same_v<Stored, Sample> && used == bands && fill == 0;
        std::vector<Sample> made(isReady ? 0 : picture.width * used);
        // Strips as high as a usual tile, so that tiles are decoded once.
        constexpr int kStrip = 16;
        const auto height = static_cast<int>(picture.height);
        for (int top = 0; top < height; top += kStrip) {
            const VipsRect strip = {0, top, static_cast<int>(picture.width), std::min(kStrip, height - top)};
            if (vips().region_prepare(region.get(), &strip) != 0)
                return top > 0;
            for (int y = top; y < top + strip.height; ++y) {
                // What VIPS_REGION_ADDR says for the first column, without the function that it calls.
                const auto* const stored = reinterpret_cast<const Stored*>(
                    region->data + static_cast<size_t>(y - region->valid.top) * static_cast<size_t>(region->bpl));
                if (isReady) {
                    rows.addRow(reinterpret_cast<const Sample*>(stored));
                    continue;
                }
                for (size_t x = 0; x < picture.width; ++x)
                    for (size_t band = 0; band < used; ++band) {
                        const Stored sample = stored[x * bands + band];
                        made[x * used + band] = static_cast<Sample>(sizeof(Stored) == 4 ? sample >> 16
                                                                    : fill != 0         ? sample | sample >> fill
                                                                                        : sample);
                    }
                rows.addRow(made.data());
            }
        }
        return true;
    }

    const bool isHEIF_;
    const bool isPNG_;
    const Loader load_;
    // What is known beside a profile, from the header.
    HEIFColors codes_;
    std::optional<ColorDescription::PowerSpace> space_;
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
