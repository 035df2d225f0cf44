#pragma once

#include "platform/media/BoxFile.h"
#include "platform/media/TagItems.h"

#include <cstdint>
#include <optional>

namespace platform {

/// Reads an ID3v2 tag of version 2.2, 2.3 or 2.4. Frames behind a broken one are not read.
///
/// @param offset  where the tag begins
/// @param limit   where it ends at the latest, whatever it claims
/// @return where the tag ends, `limit` at most; nothing if there is no tag
std::optional<int64_t> readID3v2Tag(const BoxFile& file, int64_t offset, int64_t limit, TagItems& items);

/// Reads the ID3v2 tag that stands at the end of a file, before an ID3v1 tag if there is one.
void readAppendedID3v2Tag(const BoxFile& file, TagItems& items);

/// Reads an ID3v1 tag as frames of ID3v2, for what the file has no frames of.
void readID3v1Tag(const BoxFile& file, TagItems& items);

} // namespace platform
