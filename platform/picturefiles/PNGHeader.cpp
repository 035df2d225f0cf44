#include "platform/picturefiles/PNGHeader.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/picturefiles/PNGChunks.h"

#include <algorithm>
#include <array>
#include <span>

namespace platform {
namespace {

/// Takes what counts of one chunk, of which the first bytes are there.
void readPNGChunk(uint32_t name, std::span<const uint8_t> content, PNGHeader& header)
{
    const auto number = [&](size_t index) { return bigEndian32(content, 4 * index).value_or(0); };
    // Chromaticities and powers are stored as whole numbers.
    constexpr double kParts = 100000;
    if (name == fourCharacterCode("IHDR")) {
        // By kind of colour: grey, none, colours, palette, grey and alpha, none, colours and alpha.
        constexpr std::array<unsigned, 7> kSamples{1, 1, 3, 1, 2, 1, 4};
        constexpr unsigned kBitsOfByte = 8;
        constexpr unsigned kPalette = 3;
        header.width = number(0);
        header.height = number(1);
        header.depth = content[8];
        header.hasPalette = content[9] == kPalette;
        header.samples = kSamples[std::min<size_t>(content[9], 6)];
        header.bytesPerPixel = std::max(header.samples * header.depth / kBitsOfByte, 1U);
        header.isInterlaced = content[12] != 0;
    } else if (name == fourCharacterCode("tRNS")) {
        header.hasColorForNone = true;
    } else if (name == fourCharacterCode("pHYs")) {
        constexpr double kMetresPerInch = 0.0254;
        constexpr uint8_t kMetre = 1;
        if (content[8] == kMetre && number(0) > 0)
            header.dpi = number(0) * kMetresPerInch;
    } else if (name == fourCharacterCode("cICP")) {
        header.codes = HEIFColors{content[0], content[1]};
    } else if (name == fourCharacterCode("sRGB")) {
        header.isSRGB = true;
    } else if (name == fourCharacterCode("gAMA")) {
        // Beyond these no picture can be told from black or white.
        constexpr double kLeast = 0.1;
        constexpr double kMost = 10;
        const double power = kParts / std::max(number(0), 1u);
        if (power >= kLeast && power <= kMost) {
            header.space = header.space.value_or(ColorDescription::PowerSpace{});
            header.space->power = power;
        }
    } else if (name == fourCharacterCode("cHRM")) {
        header.space = header.space.value_or(ColorDescription::PowerSpace{});
        // White comes first, and last in ours.
        auto& places = header.space->chromaticities;
        for (size_t i = 0; i < places.size(); ++i)
            places[i] = number((i + 2) % places.size()) / kParts;
    }
}

/// What a compressed text of this length becomes at the most; the library takes none that becomes more than 8 MB.
uint64_t mostBytesOfText(uint64_t length)
{
    constexpr uint64_t kMostForByte = 1032;
    constexpr uint64_t kMost = uint64_t{8} << 20;
    return std::min(length * kMostForByte, kMost);
}

} // namespace

PNGHeader readPNGHeader(const ImageFile& file)
{
    PNGHeader header;
    (void)forEachPNGChunk(file, [&header](const PNGChunk& chunk) {
        if (chunk.name == fourCharacterCode("zTXt") || chunk.name == fourCharacterCode("iTXt"))
            header.textBytes += mostBytesOfText(chunk.length);
        else
            readPNGChunk(chunk.name, chunk.start, header);
        return chunk.name != fourCharacterCode("IDAT");
    });
    return header;
}

} // namespace platform
