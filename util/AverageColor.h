#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/NSBitmapImageRep.h"
#include "platform/graphics/NSImage.h"

/// The average over the pixels whose columns and rows lie within `bounds`, as a device colour; an exact grey for what
/// is nearly one. Components are no numbers where no pixel does, and without a bitmap.
platform::NSColor averageColorOfBitmap(const platform::NSBitmapImageRep* bitmap, platform::CGSize bounds);

/// The same over an image's own pixels, with its size in points for bounds: pixels beyond as many columns and rows as
/// it has points do not count.
platform::NSColor averageColorOfImage(const platform::NSImage* image);
