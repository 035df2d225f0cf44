#pragma once

#include "platform/bytes/ByteSource.h"
#include "platform/files/NSURL.h"
#include "platform/media/AVMetadataItem.h"

namespace platform {

/// What the tags of a media file have of common keys: texts in the order of the file, then covers in theirs. Where an
/// ID3 frame stands twice, the first counts, and of a movie's items the last; several texts of one name in FLAC and Ogg
/// are one, with semicolons between. Which kind of file it is, its bytes tell and not its name. None for files that
/// cannot be opened, or whose tags are longer than 64 MB. Reads no more than the file's head and index. Blocks; any
/// thread.
///
/// @param opened  null where the file is not open yet
AVMetadataItemList readFileTags(const NSURL& url, FileBytesPtr opened = nullptr);

} // namespace platform
