#pragma once

#include "platform/pixels/PlaneMemory.h"

#include <cstdint>
#include <span>

namespace platform {

/// Whether `decodeJPEGPlanes` gets on with the libjpeg that is there. To be asked before there are planes: it tries,
/// once, with some in the thread's memory for such.
[[nodiscard]] bool canDecodeJPEGPlanes();

/// Decodes a baseline JPEG with all components in one scan, as cameras write them, to the very samples that libjpeg
/// makes of it, and faster: codes are read by a JPEGScan, and transformed by the library.
/// @param bytes  the whole file
/// @param denominator  1, 2, 4 or 8: planes are so much smaller, rounded up
/// @param planes  for as many components as the file has, each with samples of the file's own ratio
/// @return false where anything is damaged or unusual; the library is to be asked then, and the planes hold nothing
[[nodiscard]] bool decodeJPEGPlanes(std::span<const uint8_t> bytes, unsigned denominator, PlaneMemory& planes);

/// Whether libjpeg gets over the start of a file whose picture comes in several scans, as far as it is there. To make a
/// picture of them, however small, would take many times as long.
/// @param bytes  from the file's start, all its headers and some of its picture
/// @return false where it does not, and where that would tell little; a picture is to be tried then
[[nodiscard]] bool canReadJPEGScans(std::span<const uint8_t> bytes);

} // namespace platform
