#pragma once

#include <cstddef>
#include <span>
#include <vector>

/// What is left of a sound after coding, packet by packet.
namespace noisemeasure {

/// Decibels, one for every window of 2048 samples, a packet of 1024 apart: how far noise stands out of what the sound
/// masks, on the mean of all bands of a bark. A band masks noise 13 dB below itself, 25 dB less for each bark downwards
/// and 10 dB less upwards, and what is not heard in silence if a full sine plays at 96 dB. Noise 6 dB and more below
/// that is not told apart.
std::vector<double> noiseToMask(std::span<const float> sound, std::span<const float> heard, int rateHz);

/// Decibels, the largest of a packet that is louder than 60 dB below full scale.
double largestLevelError(std::span<const float> sound, std::span<const float> heard);

} // namespace noisemeasure
