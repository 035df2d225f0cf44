#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"
#include "platform/sound/ExportControl.h"
#include "platform/sound/SoundPlan.h"

namespace platform {

/// Writes a plan's sound as AAC in a new M4A file. Packets of the first file are copied as long as that is exact; the
/// rest is encoded on all processors, with the same result on any number of them. Memory does not grow with the length
/// but for four bytes a packet. What was written of a file that fails is left.
///
/// @return false on failure, or if cancelled, which is no error
[[nodiscard]] bool exportSoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control,
                                    NSError* error = nullptr);

/// Copies the packets of a plan of one unchanged piece into a new M4A file.
///
/// @return as above; kAVErrorOperationNotSupportedForAsset if its packets cannot lie in such a file
[[nodiscard]] bool copySoundToM4A(const SoundPlan& plan, const NSURL& url, const ExportControl& control,
                                  NSError* error = nullptr);

} // namespace platform
