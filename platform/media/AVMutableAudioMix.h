#pragma once

#include "platform/media/CMTime.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace platform {

/// How the volume of one track changes over the composition's time line: 1 before the first ramp, along a ramp in
/// proportion, and as the last ramp left it after that.
class AVMutableAudioMixInputParameters final {
public:
    struct VolumeRamp {
        float startVolume = 1;
        float endVolume = 1;
        CMTimeRange timeRange;
    };

    explicit AVMutableAudioMixInputParameters(int32_t trackID) : trackID_(trackID) {}

    int32_t trackID() const { return trackID_; }
    const std::vector<VolumeRamp>& volumeRamps() const { return ramps_; }
    /// Ramps are set in order of time.
    void setVolumeRamp(float fromStartVolume, float toEndVolume, CMTimeRange timeRange)
    {
        ramps_.push_back({fromStartVolume, toEndVolume, timeRange});
    }

private:
    int32_t trackID_ = 0;
    std::vector<VolumeRamp> ramps_;
};

/// Volumes of a composition's tracks; tracks without parameters play as they are.
class AVMutableAudioMix final {
public:
    const std::vector<AVMutableAudioMixInputParameters>& inputParameters() const { return inputParameters_; }
    void setInputParameters(std::vector<AVMutableAudioMixInputParameters> parameters)
    {
        inputParameters_ = std::move(parameters);
    }

private:
    std::vector<AVMutableAudioMixInputParameters> inputParameters_;
};

} // namespace platform
