#pragma once

#include "platform/foundation/NSError.h"

#include <cstdint>
#include <functional>
#include <string>

namespace stillora {

/// Fills an empty file with the contents of another, without storing them twice where the file system can share them.
/// The time of the last change is kept, and the copy is flushed to the disk.
///
/// @param destination   is there, is empty, and is no link
/// @param bytesCopied   called with the bytes that were added since the last call; answers whether to go on
/// @return false if it failed or was not to go on; `error` says why, and the destination is then of no use
[[nodiscard]] bool copyContents(const std::string& source, const std::string& destination,
                                const std::function<bool(uint64_t)>& bytesCopied, platform::NSError* error = nullptr);

} // namespace stillora
