#pragma once

#include "platform/sound/SoundFacts.h"

#include <cstdint>
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
    SoundFactsPtr facts;
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

} // namespace platform
