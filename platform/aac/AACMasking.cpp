#include "platform/aac/AACMasking.h"

#include "platform/aac/AACLanes.h"

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

double barkOf(double frequencyHz)
{
    return 13 * std::atan(0.00076 * frequencyHz) + 3.5 * std::atan(std::pow(frequencyHz / 7500, 2));
}

/// Sound pressure in decibels that is just heard in silence, after Terhardt.
double quietLevelOf(double frequencyHz)
{
    const double kilohertz = std::max(frequencyHz, 20.0) / 1000;
    return 3.64 * std::pow(kilohertz, -0.8) - 6.5 * std::exp(-0.6 * std::pow(kilohertz - 3.3, 2)) +
           1e-3 * std::pow(kilohertz, 4);
}

float fromDecibels(double decibels)
{
    return static_cast<float>(std::pow(10, decibels / 10));
}

} // namespace

AACMasking::AACMasking(AACBandStarts bands, int sampleRateHz) : bands_(bands)
{
    const size_t lines = bands.back();
    const double width = sampleRateHz / 2.0 / static_cast<double>(lines);
    // A full sine at 96 dB of sound pressure; its line's energy follows from the sum of the window.
    const double fullScale = 20 * std::log10(32768.0 * 0.64 * static_cast<double>(lines));
    constexpr double kPressureOfFullScale = 96;
    // Masking falls by so many decibels a bark.
    constexpr double kUpwardSlope = 12;
    constexpr double kDownwardSlope = 25;
    // The highest sounds are heard by few, but are missed in noise.
    constexpr double kLoudestQuiet = 60;
    const auto barkAt = [&](size_t band) { return barkOf((bands[band] + bands[band + 1]) / 2.0 * width); };
    for (size_t band = 0; band + 1 < bands.size(); ++band) {
        Band properties;
        double quiet = 1000;
        for (size_t line = bands[band]; line < bands[band + 1]; ++line)
            quiet = std::min(quiet, quietLevelOf((static_cast<double>(line) + 0.5) * width));
        quiet = std::min(quiet, kLoudestQuiet);
        properties.quiet = fromDecibels(quiet - kPressureOfFullScale + fullScale);
        if (band + 2 < bands.size()) {
            const double distance = barkAt(band + 1) - barkAt(band);
            properties.upward = fromDecibels(-kUpwardSlope * distance);
            properties.downward = fromDecibels(-kDownwardSlope * distance);
        }
        constexpr size_t kNeighbourhood = 16;
        const size_t missing = kNeighbourhood - std::min<size_t>(kNeighbourhood, bands[band + 1] - bands[band]);
        properties.firstNeighbour = bands[band] - std::min<size_t>(bands[band], missing / 2);
        properties.endNeighbour = std::min<size_t>(lines, bands[band + 1] + missing / 2);
        properties_.push_back(properties);
    }
    powers_.resize(lines);
    magnitudes_.resize(lines);
}

void AACMasking::measure(std::span<const float> lines, std::span<float> energies, std::span<float> thresholds)
{
    // A line's neighbours tell what its own phase hides.
    const size_t last = lines.size() - 1;
    powers_[0] = lines[0] * lines[0] + lines[1] * lines[1];
    for (size_t line = 1; line < last; ++line) {
        const float slope = lines[line + 1] - lines[line - 1];
        powers_[line] = lines[line] * lines[line] + slope * slope;
    }
    powers_[last] = lines[last] * lines[last] + lines[last - 1] * lines[last - 1];
    for (size_t line = 0; line < lines.size(); ++line)
        magnitudes_[line] = std::sqrt(powers_[line]);

    for (size_t band = 0; band < properties_.size(); ++band) {
        const float energy = energyOf(lines.subspan(bands_[band], size_t{bands_[band + 1]} - bands_[band]));
        energies[band] = energy;
        const Band& properties = properties_[band];
        // 1 for a flat spectrum, about 0.78 for noise; little for a tone.
        const size_t neighbours = properties.endNeighbour - properties.firstNeighbour;
        const auto count = static_cast<float>(neighbours);
        const float mean = sumOf(std::span(magnitudes_).subspan(properties.firstNeighbour, neighbours)) / count;
        const float power = sumOf(std::span(powers_).subspan(properties.firstNeighbour, neighbours)) / count;
        const float flatness = power > 0 ? mean * mean / power : 1;
        const float tonality = std::clamp((0.75F - flatness) / 0.45F, 0.0F, 1.0F);
        // Noise hides noise 6 dB below it, a tone 18 dB below.
        thresholds[band] = energy * std::exp2(-(6 + 12 * tonality) / 3.0103F);
    }
    for (size_t band = 1; band < properties_.size(); ++band)
        thresholds[band] = std::max(thresholds[band], thresholds[band - 1] * properties_[band - 1].upward);
    for (size_t band = properties_.size() - 1; band-- > 0;)
        thresholds[band] = std::max(thresholds[band], thresholds[band + 1] * properties_[band].downward);
    for (size_t band = 0; band < properties_.size(); ++band)
        thresholds[band] = std::max(thresholds[band], properties_[band].quiet);
}

} // namespace platform
