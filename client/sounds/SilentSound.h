#pragma once

#include "platform/foundation/NSError.h"

#include <string>

namespace stillora {

/// Writes a WAV file of silence: 16 bits, takes no room on the disk however long it is.
///
/// @param seconds  at most an hour
/// @return false if the file could not be written; `error` names it and why
[[nodiscard]] bool writeSilence(const std::string& path, double seconds, int sampleRateHz, int channels,
                                platform::NSError* error = nullptr);

} // namespace stillora
