#pragma once

#include <stillora/Types.h>

namespace stillora {

/// Whether frames are to get the watermark: as was asked for, else as the user has chosen once for all, else as the
/// library was built.
bool drawsWatermark(Watermark watermark);

} // namespace stillora
