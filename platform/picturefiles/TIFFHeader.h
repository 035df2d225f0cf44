#pragma once

#include "platform/picturefiles/ImageFile.h"

#include <array>
#include <cstddef>
#include <optional>

namespace platform {

/// What the first directory of a TIFF file tells of its picture.
struct TIFFHeader {
    size_t width = 0;
    size_t height = 0;
    bool isJPEG = false;
    /// Brightness and two colour differences instead of red, green and blue.
    bool hasColorDifferences = false;
    /// What stands for black and white in brightness, and for none and most in each difference.
    std::array<double, 6> reference = {0, 255, 128, 255, 128, 255};
    /// What a camera's sensor saw, to be developed by a program that knows the camera; the picture of the directory is
    /// no more than a preview, or no picture.
    bool isCameraRaw = false;
    std::optional<int> orientation;
    std::optional<double> dpi;
};

/// @return nothing if there is no directory, or the file is of the kind for more than 4 GB
std::optional<TIFFHeader> readTIFFHeader(const ImageFile& file);

} // namespace platform
