#pragma once

#include "platform/graphics/NSImage.h"

namespace platform {

/// What a document holds, as far as its icon shows it.
enum class DocumentKind { Plain, Movie, Sound, Picture };

/// A drawn page of 32 x 32 points with a sign of its kind, 64 x 64 pixels. Drawn once; any thread.
NSImagePtr documentIcon(DocumentKind kind);

} // namespace platform
