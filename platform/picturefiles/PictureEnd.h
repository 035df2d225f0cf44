#pragma once

#include "platform/picturefiles/ImageFile.h"

#include <cstdint>
#include <span>

namespace platform {

/// @name Whether a file goes on to the end of the picture in it; no pixel is decoded
/// @{

/// For pictures that end with a mark which cannot be part of them. Cameras and phones add more behind it, short texts
/// or whole movies, so the end of the file is looked at first and what is before it only if need be.
///
/// @param start  from where the mark can only be the picture's own
bool hasMarkBehind(const ImageFile& file, size_t start, std::span<const uint8_t> mark);

/// Whether the first picture of a GIF file has its last block.
bool hasWholeGIFPicture(ImageFile& file);
/// @}

} // namespace platform
