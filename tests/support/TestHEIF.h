#pragma once

#include "tests/support/TestPicture.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test {

struct HEIFOptions {
    /// More than one tile makes a grid.
    unsigned columns = 1;
    unsigned rows = 1;
    /// Of the whole picture before it is turned; 0 for that of the tiles together.
    unsigned width = 0;
    unsigned height = 0;
    /// Quarters to the left that the container turns the picture by.
    unsigned quarterTurns = 0;
    /// Whether the container exchanges top and bottom (0) or left and right (1), after turning.
    std::optional<unsigned> mirror = {};
    /// Of the width and height that is shown, about the middle, before turning; 0 for all.
    unsigned shownWidth = 0;
    unsigned shownHeight = 0;
    /// Numbers of ITU-T H.273, written where they are given.
    std::optional<unsigned> primaries = {};
    unsigned transfer = 13;
    std::vector<uint8_t> colorProfile = {};
};

/// A HEIC file put together of pictures of one size, row by row, each encoded by itself.
std::vector<uint8_t> heifBytes(const std::vector<Picture>& tiles, const HEIFOptions& options = {});

/// The part of a picture, for a tile.
Picture cropped(const Picture& picture, size_t left, size_t top, size_t width, size_t height);

} // namespace test
