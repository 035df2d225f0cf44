#pragma once

#include "platform/picturefiles/ImageFile.h"
#include "platform/picturefiles/PNGHeader.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace platform {

/// The pixels of a PNG file that stand in it as they are meant: one after another, samples of 8 or 16 bits, no palette,
/// no colour that stands for none. That is nearly every photo, and inflating it in one piece takes a quarter of the
/// time that a library needs which does so row by row.
struct PNGPixels {
    /// The most bytes of rows that are held at once; larger pictures are left to who reads row by row.
    static constexpr uint64_t kMostBytes = uint64_t{160} << 20;

    size_t width = 0;
    size_t height = 0;
    /// 1 grey, 2 grey and alpha, 3 colours, 4 colours and alpha.
    size_t bands = 0;
    /// 8 or 16.
    unsigned depth = 8;

    bool hasAlpha() const { return bands % 2 == 0; }
    size_t bytesPerRow() const { return width * bands * depth / 8; }
    /// Of the rows with the number of its filter before each.
    uint64_t inflatedBytes() const { return (uint64_t{bytesPerRow()} + 1) * height; }

    /// @return nothing where the file is of another kind, or larger than what is held
    static std::optional<PNGPixels> inFile(const PNGHeader& header);

    /// Hands over every row from above, interleaved samples of the depth, as numbers of this machine at
    /// places where it reads them.
    /// @return false, and none was handed over, where the file is damaged or memory is short
    bool read(ImageFile& file, const std::function<void(const uint8_t* samples)>& takeRow) const;
};

} // namespace platform
