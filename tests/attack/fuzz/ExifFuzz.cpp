#include "platform/picturefiles/EXIF.h"
#include "tests/attack/fuzz/Checked.h"

#include <cmath>

// EXIF blocks, with which pictures of most formats tell how they were taken.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const platform::EXIF exif = platform::parseEXIF({bytes, length});
    if (exif.orientation)
        mustHold(*exif.orientation >= 1 && *exif.orientation <= 8, "an orientation is one of eight");
    if (exif.dpi)
        mustHold(std::isfinite(*exif.dpi) && *exif.dpi > 0, "a resolution is a number");
    if (exif.origin.place)
        mustHold(std::abs(exif.origin.place->latitude) <= 90 && std::abs(exif.origin.place->longitude) <= 180,
                 "a place is on Earth");
    return 0;
}
