#pragma once

#include "platform/picturefiles/HEIFPicture.h"
#include "platform/pixels/ImageScaler.h"

#include <optional>

namespace platform {

/// Decodes the primary picture of a HEIC or AVIF file into planes as they are coded, in half the time of a library that
/// makes pixels of them first. One thread for each picture.
///
/// @return planes in the thread's ScratchMemory, before the picture is turned; nothing where a tile is damaged, or is
///     coded in a way that has to be left to others
std::optional<ImagePlanes> readHEIFPixels(ImageFile& file, const HEIFPicture& picture);

/// Whether the first tile can be decoded so; of a picture of one tile that is all of it.
bool hasHEIFPixels(ImageFile& file, const HEIFPicture& picture);

} // namespace platform
