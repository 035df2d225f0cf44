#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstdint>

namespace platform {

/// How far a WAV file may be read: to its list of texts, where that claims more bytes than the file has or any such
/// list needs. Memory would be taken for what it claims.
/// @return INT64_MAX for all of the file, and for what is no WAV file
int64_t endOfWAVFile(const ByteSource& file);

} // namespace platform
