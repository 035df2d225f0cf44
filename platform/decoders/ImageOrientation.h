#pragma once

#include "platform/pixels/CGImage.h"

namespace platform {

/// Whether this orientation turns a picture by a quarter.
inline bool turnsByQuarter(int orientation)
{
    return orientation >= 5 && orientation <= 8;
}

/// The picture upright. Orientation 1 and unknown ones give it back as it is.
CGImage uprightImage(CGImage image, int orientation);

} // namespace platform
