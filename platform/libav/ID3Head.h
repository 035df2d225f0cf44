#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstdint>

namespace platform {

/// Where the ID3 tags end that stand in front of a file's sound; 0 if there are none. What they claim need not be
/// there.
int64_t endOfID3Tags(const ByteSource& file);

} // namespace platform
