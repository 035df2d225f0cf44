#pragma once

#include "platform/media/BoxFile.h"
#include "platform/media/TagItems.h"

namespace platform {

/// Reads the ID3v2 tags of a WAV file, and its list of texts.
void readWAVTags(const BoxFile& file, TagItems& items);

/// Reads the ID3v2 tags of an AIFF file, and its chunks of text.
void readAIFFTags(const BoxFile& file, TagItems& items);

} // namespace platform
