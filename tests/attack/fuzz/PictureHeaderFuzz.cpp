#include "platform/decoders/EXIF.h"
#include "platform/decoders/HEIFContainer.h"
#include "platform/decoders/ImageFile.h"
#include "platform/decoders/ImageFormat.h"
#include "platform/decoders/JPEGHeader.h"
#include "platform/decoders/PNGHeader.h"
#include "platform/decoders/PictureEnd.h"
#include "platform/decoders/TIFFHeader.h"
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
    mustHold(readPNGHeader(*file).bytesPerPixel >= 1, "a pixel takes a byte");
    (void)readTIFFHeader(*file);
    (void)readTIFFOrigin(*file);
    (void)readHEIFColors(*file);
    (void)hasWholeGIFPicture(*file);
    return 0;
}
