#pragma once

#include <stillora/Types.h>

#include "platform/decoders/CGImageSource.h"

namespace stillora {

/// Of a picture as it is shown.
inline Size uprightSizeOf(const platform::CGImageSource::Properties& properties)
{
    const auto width = static_cast<double>(properties.pixelWidth);
    const auto height = static_cast<double>(properties.pixelHeight);
    return properties.orientation.value_or(1) >= 5 ? Size{height, width} : Size{width, height};
}

} // namespace stillora
