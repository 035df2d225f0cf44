#include "platform/decoders/PNGHeader.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace platform {
namespace {

/// Takes what counts of one chunk, of which the first bytes are there.
void readPNGChunk(std::string_view name, std::span<const uint8_t> content, PNGHeader& header)
{
    const auto number = [&](size_t index) { return bigEndian32(content, 4 * index).value_or(0); };
    // Chromaticities and powers are stored as whole numbers.
    constexpr double kParts = 100000;
    if (name == "IHDR") {
        // By kind of colour: grey, none, colours, palette, grey and alpha, none, colours and alpha.
        constexpr std::array<unsigned, 7> kSamples{1, 1, 3, 1, 2, 1, 4};
        constexpr unsigned kBitsOfByte = 8;
        const unsigned depth = content[8];
        header.bytesPerPixel = std::max(kSamples[std::min<size_t>(content[9], 6)] * depth / kBitsOfByte, 1U);
        header.isInterlaced = content[12] != 0;
    } else if (name == "pHYs") {
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

} // namespace

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

} // namespace platform
