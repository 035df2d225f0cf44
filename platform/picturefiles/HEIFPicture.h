#pragma once

#include "platform/picturefiles/ImageFile.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform {

/// Where the primary picture of a HEIC or AVIF file lies, as ISO/IEC 23008-12 has it: one coded picture, or tiles of
/// one size that are coded by themselves, as phones write them.
struct HEIFPicture {
    enum class Codec { HEVC, AV1 };

    struct Extent {
        int64_t offset = 0;
        int64_t length = 0;
    };
    /// The bytes of a coded picture, in parts that may lie anywhere.
    using Tile = std::vector<Extent>;

    /// How the numbers of colour differences are meant, by those of ITU-T H.273.
    struct Codes {
        int matrix = 2;
        bool isFullRange = false;
    };

    Codec codec = Codec::HEVC;
    /// What the decoder is told of all tiles beforehand.
    std::vector<uint8_t> configuration;
    size_t tileWidth = 0;
    size_t tileHeight = 0;
    size_t columns = 1;
    /// Row by row from above.
    std::vector<Tile> tiles;
    /// Of the whole, which the last tiles may reach over, before it is turned.
    size_t width = 0;
    size_t height = 0;
    /// Quarters to the left that it is turned by to be shown, 0 to 3.
    unsigned quarterTurns = 0;
    /// Nothing where the coded pictures themselves tell.
    std::optional<Codes> codes;

    size_t rows() const { return tiles.size() / columns; }
    size_t shownWidth() const { return quarterTurns % 2 == 0 ? width : height; }
    size_t shownHeight() const { return quarterTurns % 2 == 0 ? height : width; }
};

/// @return nothing where the picture is of a rarer kind (cut, mirrored, laid over others, partly transparent, of tiles
///     that differ) or damaged; every extent that is returned lies in the file
std::optional<HEIFPicture> readHEIFPicture(const ImageFile& file);

} // namespace platform
