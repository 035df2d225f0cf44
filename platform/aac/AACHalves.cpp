#include "platform/aac/AACHalves.h"

#include "platform/aac/AACLanes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace platform {
namespace {

using Weights = std::array<float, AACTransform::kSamples>;

/// 1 in the first half and 0 in the second, with half a wave of a cosine of this length between.
Weights fallOver(size_t length)
{
    Weights weights{};
    const double start = static_cast<double>(AACTransform::kLines) - static_cast<double>(length) / 2;
    for (size_t i = 0; i < weights.size(); ++i) {
        const double place = (static_cast<double>(i) + 0.5 - start) / static_cast<double>(length);
        weights[i] = static_cast<float>(0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp(place, 0.0, 1.0)));
    }
    return weights;
}

} // namespace

std::array<float, 2> takeFirstHalf(std::span<float, AACTransform::kSamples> samples, bool isShort)
{
    static const Weights longWeights = fallOver(AACTransform::kLines);
    static const Weights shortWeights = fallOver(AACTransform::kShortLines);
    const Weights& weights = isShort ? shortWeights : longWeights;
    const float both = energyOf(samples);
    std::array<float, AACTransform::kSamples> weighted;
    for (size_t i = 0; i < samples.size(); ++i)
        weighted[i] = samples[i] * weights[i];
    const float first = productOf(samples, weighted);
    std::copy(weighted.begin(), weighted.end(), samples.begin());
    // What a window of so many lines makes of the energy of samples.
    const size_t lines = isShort ? AACTransform::kShortLines : AACTransform::kLines;
    const auto scale = static_cast<float>(2 * lines) * 32768 * 32768;
    // Silence, 90 dB below full scale, needs no level.
    constexpr float kQuiet = AACTransform::kLines * 1e-9F;
    return {scale * (first + kQuiet), scale * (std::max(both - first, 0.0F) + kQuiet)};
}

void AACHalves::addUp()
{
    squares = {energyOf(lines[0]), energyOf(lines[1])};
    product = productOf(lines[0], lines[1]);
}

AACHalfErrors halfErrorsOf(const AACHalves& halves, const AACHalves::Lines& errors)
{
    FloatLanes firstExcess{};
    FloatLanes secondExcess{};
    for (size_t line = 0; line < errors.size(); line += kLanes) {
        const FloatLanes error = lanesAt(&errors[line]);
        const FloatLanes noise = error * error;
        const FloatLanes share = lanesAt(&halves.firstShares[line]);
        firstExcess += 2 * error * lanesAt(&halves.lines[0][line]) + noise * share;
        secondExcess += 2 * error * lanesAt(&halves.lines[1][line]) + noise * (1 - share);
    }
    const std::array<float, 2> excess = {sumOf(firstExcess), sumOf(secondExcess)};
    const auto& squares = halves.squares;
    AACHalfErrors result;
    for (size_t half = 0; half < 2; ++half)
        result.worst = std::max(result.worst, std::abs(excess[half]) / halves.energies[half]);
    // Adding a part of one half changes both, as far as they have lines in common.
    const float determinant = squares[0] * squares[1] - halves.product * halves.product;
    if (determinant > 1e-6F * squares[0] * squares[1]) {
        result.shifts[0] = (excess[1] * halves.product - excess[0] * squares[1]) / determinant / 2;
        result.shifts[1] = (excess[0] * halves.product - excess[1] * squares[0]) / determinant / 2;
    }
    return result;
}

} // namespace platform
