#pragma once

#include <cstdint>
#include <optional>

namespace platform {

/// How the samples of a sound are to be understood.
struct AudioStreamBasicDescription {
    /// Samples of one channel in a second.
    double mSampleRate = 0;
    uint32_t mChannelsPerFrame = 0;
};

/// What kind of media a track holds; a track may hold several kinds.
struct CMFormatDescription {
    /// None for what is no sound.
    std::optional<AudioStreamBasicDescription> audioStreamBasicDescription;
};

} // namespace platform
