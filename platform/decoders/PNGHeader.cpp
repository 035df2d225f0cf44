#include "platform/decoders/PNGHeader.h"

#include "platform/bytes/ByteReader.h"
#include "platform/bytes/ByteSource.h"
#include "platform/decoders/TIFFStructure.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <vector>

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

bool isTangledEXIF(std::span<const uint8_t> bytes)
{
    constexpr std::array<uint16_t, 3> kFolders = {0x8769, 0x8825, 0xA005};
    // Of each picture in a block, of which there may be two.
    constexpr size_t kMostFolders = 2 * kFolders.size();
    const MemoryBytes source(bytes);
    const TIFFStructure structure(source);
    std::vector<uint32_t> folders;
    if (const auto first = structure.firstFolder())
        folders.push_back(*first);
    for (size_t i = 0; i < folders.size() && folders.size() <= kMostFolders; ++i)
        structure.forEachEntry(folders[i], [&](uint16_t tag, size_t entry) {
            if (std::ranges::find(kFolders, tag) != kFolders.end())
                folders.push_back(structure.integer(entry).value_or(0));
        });
    return folders.size() > kMostFolders;
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
        const size_t length = bigEndian32(chunk, 0).value_or(0);
        if (name == "eXIf") {
            constexpr size_t kLongest = size_t{1} << 20;
            std::vector<uint8_t> exif(std::min({length, kLongest, file.length() - offset}));
            const ssize_t got = file.readAt(offset + kNameEnd, exif.data(), exif.size());
            header.hasTangledEXIF =
                isTangledEXIF(std::span(exif).first(static_cast<size_t>(std::max<ssize_t>(got, 0))));
        }
        offset += kChunkFrame + length;
    }
    return header;
}

} // namespace platform
