#include "platform/decoders/PNGPixels.h"
#include "platform/picturefiles/EXIF.h"
#include "platform/picturefiles/EXIFBlocks.h"
#include "platform/picturefiles/HEIFContainer.h"
#include "platform/picturefiles/HEIFPicture.h"
#include "platform/picturefiles/ImageFile.h"
#include "platform/picturefiles/ImageFormat.h"
#include "platform/picturefiles/JPEG2000Header.h"
#include "platform/picturefiles/JPEGHeader.h"
#include "platform/picturefiles/PNGHeader.h"
#include "platform/picturefiles/PictureEnd.h"
#include "platform/picturefiles/TIFFHeader.h"
#include "tests/attack/fuzz/Checked.h"

#include <algorithm>
#include <array>

using namespace platform;

// What is read of a picture file beside its pixels, whatever format it is of.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::span<const uint8_t> all(bytes, length);
    (void)imageFormatOfContent(all.first(std::min(length, kImageFormatBytes)));
    (void)isCameraRawContent(all.first(std::min(length, kImageFormatBytes)));
    const auto file = ImageFile::withData(NSData(bytes, bytes + length), "fuzzed", nullptr);
    if (!file)
        return 0;
    if (const auto header = readJPEGHeader(*file)) {
        mustHold(header->length <= length, "a header ends in its file");
        (void)countJPEGScans(*file, *header);
        constexpr std::array<uint8_t, 2> kEnd = {0xFF, 0xD9};
        (void)hasMarkBehind(*file, header->length, kEnd);
    }
    const PNGHeader png = readPNGHeader(*file);
    mustHold(png.bytesPerPixel >= 1, "a pixel takes a byte");
    if (const auto pixels = PNGPixels::inFile(png); pixels && pixels->inflatedBytes() <= size_t{1} << 20)
        (void)pixels->read(*file, [](const uint8_t*) {});
    (void)readTIFFHeader(*file);
    (void)readTIFFOrigin(*file);
    (void)readHEIFColors(*file);
    if (const auto picture = readHEIFPicture(*file)) {
        mustHold(picture->rows() * picture->columns == picture->tiles.size(), "tiles fill their rows");
        for (const auto& tile : picture->tiles)
            for (const auto& extent : tile)
                mustHold(extent.offset >= 0 && extent.length > 0 &&
                             extent.length <= static_cast<int64_t>(length) - extent.offset,
                         "a tile lies in its file");
    }
    (void)hasWholeGIFPicture(*file);
    for (const char* format : {"png", "webp", "heic", "avif"})
        (void)hasTangledEXIF(*file, format);
    if (const auto stream = readJPEG2000Header(all))
        mustHold(stream->width > 0 && stream->height > 0 && stream->components > 0, "a picture has pixels");
    return 0;
}
