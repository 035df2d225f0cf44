#pragma once

#include "platform/media/BoxFile.h"
#include "platform/media/TagItems.h"

#include <cstdint>

namespace platform {

/// Reads the comments and pictures of a FLAC file.
/// @param offset  where its first block begins, behind the mark
void readFLACTags(const BoxFile& file, int64_t offset, TagItems& items);

/// Reads the comments of an Ogg file's first sound: Vorbis, Opus, Speex or FLAC.
void readOggTags(const BoxFile& file, TagItems& items);

} // namespace platform
