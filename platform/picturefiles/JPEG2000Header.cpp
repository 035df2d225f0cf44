#include "platform/picturefiles/JPEG2000Header.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>

namespace platform {

namespace {

constexpr uint16_t kCoding = 0xFF52;
constexpr uint16_t kCodingOfComponent = 0xFF53;
constexpr uint16_t kTile = 0xFF90;
constexpr uint16_t kData = 0xFF93;

// Of an edge, as a power of two.
constexpr unsigned kLargestGroup = 15;
constexpr unsigned kLargestBlock = 10;

uint64_t rounded(uint64_t length, uint64_t part)
{
    return (length + part - 1) / part;
}

std::optional<JPEG2000Header> readSizes(std::span<const uint8_t> stream)
{
    const auto number = [stream](size_t offset) { return uint64_t{bigEndian32(stream, offset).value_or(0)}; };
    const uint64_t right = number(8);
    const uint64_t bottom = number(12);
    const uint64_t left = number(16);
    const uint64_t top = number(20);
    const uint64_t tileWidth = number(24);
    const uint64_t tileHeight = number(28);
    const auto components = bigEndian16(stream, 40);
    if (!components || right <= left || bottom <= top || tileWidth == 0 || tileHeight == 0)
        return std::nullopt;
    JPEG2000Header header;
    header.width = right - left;
    header.height = bottom - top;
    header.components = *components;
    // By the grid's own corner, which lies no further right or down than the picture's.
    constexpr uint64_t kMostTiles = uint64_t{1} << 32;
    header.tiles = std::min(kMostTiles, rounded(right - std::min(right, number(32)), tileWidth) *
                                            rounded(bottom - std::min(bottom, number(36)), tileHeight));
    header.pixelsOfBlock = uint64_t{1} << 2 * kLargestBlock;
    header.pixelsOfGroup = uint64_t{1} << 2 * kLargestGroup;
    return header;
}

/// @param parameters  from the number of levels on
void takeCoding(std::span<const uint8_t> parameters, bool namesGroups, JPEG2000Header& header)
{
    constexpr size_t kFixed = 5;
    if (parameters.size() < kFixed)
        return;
    constexpr unsigned kMostLevels = 32;
    header.levels = std::max(header.levels, std::min<unsigned>(parameters[0], kMostLevels));
    const unsigned block = std::min((parameters[1] & 15u) + (parameters[2] & 15u) + 4, 2 * kLargestBlock);
    header.pixelsOfBlock = std::min(header.pixelsOfBlock, uint64_t{1} << block);
    if (!namesGroups)
        return;
    const auto groups = parameters.subspan(kFixed, std::min<size_t>(parameters.size() - kFixed, parameters[0] + 1u));
    for (const uint8_t edges : groups)
        header.pixelsOfGroup = std::min(header.pixelsOfGroup, uint64_t{1} << ((edges & 15u) + (edges >> 4)));
}

/// Takes what counts of one segment, without its mark.
void takeSegment(uint16_t mark, std::span<const uint8_t> segment, JPEG2000Header& header)
{
    const size_t component = header.components > 256 ? 2 : 1;
    const size_t style = mark == kCodingOfComponent ? 2 + component : 2;
    const size_t parameters = mark == kCodingOfComponent ? style + 1 : style + 5;
    if ((mark == kCoding || mark == kCodingOfComponent) && parameters < segment.size())
        takeCoding(segment.subspan(parameters), (segment[style] & 1) != 0, header);
}

} // namespace

std::optional<JPEG2000Header> readJPEG2000Header(std::span<const uint8_t> bytes)
{
    constexpr std::array<uint8_t, 4> kStart = {0xFF, 0x4F, 0xFF, 0x51};
    const auto found = std::search(bytes.begin(), bytes.end(), kStart.begin(), kStart.end());
    if (found == bytes.end())
        return std::nullopt;
    const auto stream = bytes.subspan(static_cast<size_t>(found - bytes.begin()));
    auto header = readSizes(stream);
    if (!header)
        return std::nullopt;
    // Segments, each with its length; a tile's data is passed over by the length that the tile's head tells.
    size_t at = 2;
    size_t endOfTile = 0;
    for (;;) {
        const auto mark = bigEndian16(stream, at);
        if (mark == kData && endOfTile > at) {
            at = endOfTile;
            continue;
        }
        const auto length = bigEndian16(stream, at + 2);
        if (!mark || !length || *length < 2 || *length > stream.size() - at - 2)
            return header;
        if (mark == kTile)
            endOfTile = at + bigEndian32(stream, at + 6).value_or(0);
        else
            takeSegment(*mark, stream.subspan(at + 2, *length), *header);
        at += size_t{2} + *length;
    }
}

} // namespace platform
