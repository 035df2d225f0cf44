#pragma once

#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/NSImage.h"

/// Helpers for pictures.
namespace MORImageCategory {

/// The picture scaled so that its longer side (the height of a square) becomes that of the target. A picture whose
/// shape is flatter than the target's can come out taller than it.
///
/// @param target  points; the zero size keeps the picture's own
/// @return an image whose size may be fractional, with whole pixels that cover it; null without a picture
platform::NSImagePtr initWithCGImage(const platform::CGImagePtr& image,
                                     platform::CGSize fitInSizeRespectingAspectRatio);

} // namespace MORImageCategory
