#pragma once

#include "platform/foundation/NSURL.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVMutableAudioMix.h"
#include "platform/sound/SoundFile.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace platform {

/// A volume ramp in samples of the output, on the composition's time line; its ends need not be whole.
struct SoundRamp {
    double start = 0;
    double end = 0;
    float startVolume = 1;
    float endVolume = 1;
};

/// A part of a sound file at its place.
struct SoundPiece {
    SoundFacts facts;
    /// All three in samples of the output; the first counts from the start of the file.
    int64_t sourceStart = 0;
    int64_t targetStart = 0;
    int64_t length = 0;
    std::vector<SoundRamp> ramps;

    int64_t targetEnd() const { return targetStart + length; }
};

/// What is to be heard.
struct SoundPlan {
    int sampleRateHz = 0;
    int channels = 0;
    /// In order of time. Where two play at once they are added.
    std::vector<SoundPiece> pieces;
    /// The part of the time line that is wanted, in samples.
    int64_t rangeStart = 0;
    int64_t rangeEnd = 0;
};

/// Lays out the sound of an asset: a file's first sound track, or all of a composition's.
///
/// @param timeRange  nothing for all; clipped to what there is
/// @return nothing if there is no sound, or none in the range; `error` tells which
[[nodiscard]] std::optional<SoundPlan> planSound(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange,
                                                 const AVMutableAudioMix* audioMix, NSError* error = nullptr);

struct ExportControl {
    /// Asked often.
    std::function<bool()> isCancelled;
    /// Told the part that is done, 0 to 1.
    std::function<void(double)> setProgress;
};

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
