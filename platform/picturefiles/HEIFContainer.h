#pragma once

#include "platform/picturefiles/ImageFile.h"

namespace platform {

/// What a HEIC or AVIF file says of its colours beside an ICC profile, by the numbers of ITU-T H.273; 2 means not
/// stated.
struct HEIFColors {
    int primaries = 2;
    int transfer = 2;
};

/// Of the primary picture; of any picture of the file where that one states nothing.
HEIFColors readHEIFColors(const ImageFile& file);

} // namespace platform
