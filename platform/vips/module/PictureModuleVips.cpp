#include "platform/vips/module/PictureModule.h"

#include <gmodule.h>
#include <vips/vips.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <dlfcn.h>

namespace {

struct Unreference {
    void operator()(void* object) const { g_object_unref(object); }
};
using ImagePtr = std::unique_ptr<VipsImage, Unreference>;
using RegionPtr = std::unique_ptr<VipsRegion, Unreference>;
using SourcePtr = std::unique_ptr<VipsSourceCustom, Unreference>;

/// A picture's file and what the library makes of it, in the order in which each needs the one before.
struct Picture {
    const PictureModuleFile* file = nullptr;
    gint64 position = 0;
    SourcePtr source = nullptr;
    ImagePtr image = nullptr;
    /// Of samples that are handed over.
    size_t usedBands = 0;
};

gint64 readFrom(VipsSourceCustom*, void* bytes, gint64 length, Picture* picture)
{
    const int64_t got = picture->file->readAt(picture->file->context, picture->position, bytes, length);
    if (got > 0)
        picture->position += got;
    return got;
}

gint64 seekTo(VipsSourceCustom*, gint64 offset, int whence, Picture* picture)
{
    gint64 position = offset;
    if (whence == SEEK_CUR)
        position += picture->position;
    else if (whence == SEEK_END)
        position += picture->file->length;
    if (position < 0)
        return -1;
    return picture->position = position;
}

/// Loads the one of the library's modules that is needed, where it is not a part of the library itself.
void loadHEIF()
{
    static std::once_flag isTried;
    std::call_once(isTried, [] {
        Dl_info library{};
        if (dladdr(reinterpret_cast<const void*>(&vips_init), &library) == 0)
            return;
        const auto folder = "vips-modules-" + std::to_string(vips_version(0)) + "." + std::to_string(vips_version(1));
        const auto file = std::filesystem::path(library.dli_fname).parent_path() / folder / "vips-heif.so";
        if (GModule* const module = g_module_open(file.c_str(), G_MODULE_BIND_LOCAL))
            g_module_make_resident(module);
    });
}

/// Named, not found by content: no other loader can be talked into opening the file.
VipsImage* load(std::string_view format, VipsSource* source)
{
    using Loader = int (*)(VipsSource*, VipsImage**, ...);
    const Loader loader = format == "png"    ? vips_pngload_source
                          : format == "webp" ? vips_webpload_source
                          : format == "tiff" ? vips_tiffload_source
                          : format == "gif"  ? vips_gifload_source
                                             : vips_heifload_source;
    if (loader == vips_heifload_source)
        loadHEIF();
    VipsImage* image = nullptr;
    return loader(source, &image, "access", VIPS_ACCESS_SEQUENTIAL, nullptr) == 0 ? image : nullptr;
}

int integer(VipsImage* image, const char* name, int otherwise)
{
    int value = 0;
    return vips_image_get_typeof(image, name) != 0 && vips_image_get_int(image, name, &value) == 0 ? value : otherwise;
}

void getBlob(VipsImage* image, const char* name, const uint8_t*& bytes, size_t& length)
{
    const void* data = nullptr;
    if (vips_image_get_typeof(image, name) == 0 || vips_image_get_blob(image, name, &data, &length) != 0)
        length = 0;
    bytes = static_cast<const uint8_t*>(data);
}

bool start()
{
    if (vips_init("pictures") != 0)
        return false;
    // Nothing but the parts that are fit for files of strangers.
    vips_block_untrusted_set(TRUE);
    // One photo is one thread, and no photo is opened twice.
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    // Its remarks on odd files are for nobody.
    g_log_set_handler(
        "VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION),
        [](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);
    return true;
}

void* openPicture(const char* format, const PictureModuleFile* file, PictureModuleHeader* header)
{
    auto picture = std::make_unique<Picture>(Picture{file});
    picture->source.reset(vips_source_custom_new());
    g_signal_connect(picture->source.get(), "read", G_CALLBACK(readFrom), picture.get());
    g_signal_connect(picture->source.get(), "seek", G_CALLBACK(seekTo), picture.get());
    picture->image.reset(load(format, reinterpret_cast<VipsSource*>(picture->source.get())));
    VipsImage* const image = picture->image.get();
    if (image) {
        header->width = static_cast<size_t>(vips_image_get_width(image));
        header->height = static_cast<size_t>(vips_image_get_height(image));
        header->orientation = integer(image, VIPS_META_ORIENTATION, 0);
        header->hasResolution = vips_image_get_typeof(image, VIPS_META_RESOLUTION_UNIT) != 0;
        header->pixelsPerMillimetre = vips_image_get_xres(image);
        getBlob(image, VIPS_META_EXIF_NAME, header->exif, header->exifLength);
        getBlob(image, VIPS_META_ICC_NAME, header->profile, header->profileLength);
    }
    vips_error_clear();
    return image ? picture.release() : nullptr;
}

void closePicture(void* picture)
{
    delete static_cast<Picture*>(picture);
    vips_error_clear();
}

bool isKnown(VipsInterpretation kind)
{
    return kind == VIPS_INTERPRETATION_sRGB || kind == VIPS_INTERPRETATION_RGB || kind == VIPS_INTERPRETATION_B_W ||
           kind == VIPS_INTERPRETATION_RGB16 || kind == VIPS_INTERPRETATION_GREY16 ||
           kind == VIPS_INTERPRETATION_CMYK || kind == VIPS_INTERPRETATION_MULTIBAND;
}

/// Brings rare kinds of pixels to red, green and blue of 8 bits.
bool simplify(Picture& picture)
{
    VipsImage* simple = nullptr;
    if (vips_colourspace(picture.image.get(), &simple, VIPS_INTERPRETATION_sRGB, nullptr) != 0)
        return false;
    const ImagePtr whole(simple);
    simple = nullptr;
    if (vips_cast(whole.get(), &simple, VIPS_FORMAT_UCHAR, nullptr) != 0)
        return false;
    picture.image.reset(simple);
    return true;
}

bool describe(void* object, PictureModuleRows* rows)
{
    auto& picture = *static_cast<Picture*>(object);
    rows->isConverted = !isKnown(vips_image_get_interpretation(picture.image.get()));
    if (rows->isConverted && !simplify(picture))
        return false;
    VipsImage* const image = picture.image.get();
    const VipsBandFormat format = vips_image_get_format(image);
    // Numbers with a sign, or fractions, of which nothing says where white is, are refused.
    if (format != VIPS_FORMAT_UCHAR && format != VIPS_FORMAT_USHORT && format != VIPS_FORMAT_UINT)
        return false;
    const auto bands = static_cast<size_t>(vips_image_get_bands(image));
    const bool isInk = vips_image_get_interpretation(image) == VIPS_INTERPRETATION_CMYK;
    rows->colorBands = isInk ? 4 : bands >= 3 ? 3 : 1;
    rows->hasAlpha = !isInk && bands > rows->colorBands;
    rows->depth = format == VIPS_FORMAT_UCHAR ? 8 : 16;
    picture.usedBands = rows->colorBands + (rows->hasAlpha ? 1 : 0);
    return true;
}

using TakeRow = bool (*)(void* context, const void* samples);

/// Makes of a row as it is stored the samples that are handed over.
template <typename Stored, typename Sample>
void makeRow(const Stored* stored, size_t bands, int fill, size_t usedBands, std::vector<Sample>& made)
{
    const size_t width = made.size() / usedBands;
    for (size_t x = 0; x < width; ++x)
        for (size_t band = 0; band < usedBands; ++band) {
            const Stored sample = stored[x * bands + band];
            made[x * usedBands + band] = static_cast<Sample>(sizeof(Stored) == 4 ? sample >> 16
                                                             : fill != 0         ? sample | sample >> fill
                                                                                 : sample);
        }
}

template <typename Stored>
size_t readRows(const Picture& picture, void* context, TakeRow takeRow)
{
    using Sample = std::conditional_t<sizeof(Stored) == 1, uint8_t, uint16_t>;
    VipsImage* const image = picture.image.get();
    const auto bands = static_cast<size_t>(vips_image_get_bands(image));
    // Of HEIC and AVIF, 10 or 12 bits come as the upper ones of 16: their own first bits fill what is left, so that
    // white is the most.
    const int depth = integer(image, "heif-bitdepth", 16);
    const int fill = sizeof(Stored) == 2 && depth > 8 && depth < 16 ? depth : 0;
    const bool isReady = std::is_same_v<Stored, Sample> && picture.usedBands == bands && fill == 0;
    const int width = vips_image_get_width(image);
    const int height = vips_image_get_height(image);
    std::vector<Sample> made(isReady ? 0 : static_cast<size_t>(width) * picture.usedBands);
    const RegionPtr region(vips_region_new(image));
    // Strips as high as a usual tile, so that tiles are decoded once.
    constexpr int kStrip = 16;
    for (int top = 0; top < height; top += kStrip) {
        const VipsRect strip = {0, top, width, std::min(kStrip, height - top)};
        if (vips_region_prepare(region.get(), &strip) != 0)
            return static_cast<size_t>(top);
        for (int y = top; y < top + strip.height; ++y) {
            const auto* const stored = reinterpret_cast<const Stored*>(VIPS_REGION_ADDR(region.get(), 0, y));
            if (!isReady)
                makeRow(stored, bands, fill, picture.usedBands, made);
            if (!takeRow(context, isReady ? static_cast<const void*>(stored) : made.data()))
                return static_cast<size_t>(y) + 1;
        }
    }
    return static_cast<size_t>(height);
}

size_t readPicture(void* object, void* context, TakeRow takeRow)
{
    const auto& picture = *static_cast<const Picture*>(object);
    try {
        switch (vips_image_get_format(picture.image.get())) {
        case VIPS_FORMAT_UCHAR:
            return readRows<uint8_t>(picture, context, takeRow);
        case VIPS_FORMAT_USHORT:
            return readRows<uint16_t>(picture, context, takeRow);
        default:
            return readRows<uint32_t>(picture, context, takeRow);
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

/// Writes a file's bytes and their number; 0 where that worked.
int write(std::string_view format, VipsImage* image, double factor, void** bytes, size_t* length)
{
    if (format == "gif")
        return vips_gifsave_buffer(image, bytes, length, nullptr);
    if (factor == 1)
        return vips_jp2ksave_buffer(image, bytes, length, "lossless", TRUE, nullptr);
    // Decibels of signal to noise: what is just to be recognised to what cannot be told from the original.
    constexpr double kLeast = 25;
    constexpr double kMost = 50;
    const auto quality = static_cast<int>(kLeast + (kMost - kLeast) * factor);
    return vips_jp2ksave_buffer(image, bytes, length, "Q", quality, "subsample-mode", VIPS_FOREIGN_SUBSAMPLE_OFF,
                                nullptr);
}

uint8_t* save(const char* format, const uint8_t* samples, size_t width, size_t height, size_t bands, double factor,
              size_t* length)
{
    const ImagePtr plain(vips_image_new_from_memory(samples, width * height * bands, static_cast<int>(width),
                                                    static_cast<int>(height), static_cast<int>(bands),
                                                    VIPS_FORMAT_UCHAR));
    VipsImage* described = nullptr;
    if (plain)
        vips_copy(plain.get(), &described, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr);
    const ImagePtr image(described);
    void* bytes = nullptr;
    const bool isSaved = image && write(format, image.get(), factor, &bytes, length) == 0;
    vips_error_clear();
    if (!isSaved)
        g_free(bytes);
    return isSaved ? static_cast<uint8_t*>(bytes) : nullptr;
}

void release(uint8_t* file)
{
    g_free(file);
}

} // namespace

extern "C" [[gnu::visibility("default")]] const PictureModule pictureModule;

const PictureModule pictureModule = {kPictureModuleVersion, start,        openPicture, describe,
                                     readPicture,           closePicture, save,        release};
