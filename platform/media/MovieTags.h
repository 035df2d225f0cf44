#pragma once

#include "platform/media/BoxFile.h"
#include "platform/media/TagItems.h"

namespace platform {

/// Reads the tags of a QuickTime or MPEG-4 file as a whole, not those of its tracks: iTunes's items, QuickTime's keys
/// and QuickTime's older user data.
void readMovieTags(const BoxFile& file, TagItems& items);

} // namespace platform
