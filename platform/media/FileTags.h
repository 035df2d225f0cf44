#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/AVMetadataItem.h"

namespace platform {

/// What the tags of a media file have of common keys: texts in the order of the file, then covers in theirs. Where an
/// ID3 frame stands twice, the first counts, and of a movie's items the last; several texts of one name in FLAC and Ogg
/// are one, with semicolons between. Which kind of file it is, its bytes tell and not its name. None for files that
/// cannot be opened, or whose tags are longer than 64 MB. Reads no more than the file's head and index. Blocks; any
/// thread.
AVMetadataItemList readFileTags(const NSURL& url);

} // namespace platform
