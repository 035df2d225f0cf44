#pragma once

#include "platform/foundation/NSURL.h"
#include "platform/media/AVMetadataItem.h"

namespace platform {

/// What the tags of a media file have of common keys, in the order of the file. Which kind of file it is, its first
/// bytes tell and not its name. Damaged tags give what can be read of them; takes little memory beyond the values.
/// Blocks; any thread.
AVMetadataItemList readFileTags(const NSURL& url);

} // namespace platform
