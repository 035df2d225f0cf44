#pragma once

#include "platform/media/AVMetadataItem.h"

#include <cstddef>

struct AVFormatContext;

namespace platform {

/// Lets a movie that is to be written tell when it was made and, if there is an item with the common key for it, its
/// title. Other items are left out.
/// @return bytes that the title takes in the index at most
size_t setMovieMetadata(AVFormatContext& movie, const AVMetadataItemList& metadata);

} // namespace platform
