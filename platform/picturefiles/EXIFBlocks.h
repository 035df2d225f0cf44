#pragma once

#include "platform/picturefiles/ImageFile.h"

#include <string_view>

namespace platform {

/// Whether the EXIF of a PNG, WebP, HEIC or AVIF file names more folders than there are kinds of them: to those who
/// follow each it never ends. So does one that is longer than any is, or that stands behind tens of thousands of parts.
///
/// @param format  as `imageFormatOfContent` tells it; of others nothing is said
bool hasTangledEXIF(const ImageFile& file, std::string_view format);

} // namespace platform
