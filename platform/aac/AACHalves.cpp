#include "platform/aac/AACHalves.h"

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
    float first = 0;
    float both = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const float energy = samples[i] * samples[i];
        first += energy * weights[i];
        both += energy;
        samples[i] *= weights[i];
    }
    // What a window of so many lines makes of the energy of samples.
    const size_t lines = isShort ? AACTransform::kShortLines : AACTransform::kLines;
    const auto scale = static_cast<float>(2 * lines) * 32768 * 32768;
    // Silence, 90 dB below full scale, needs no level.
    constexpr float kQuiet = AACTransform::kLines * 1e-9F;
    return {scale * (first + kQuiet), scale * (std::max(both - first, 0.0F) + kQuiet)};
}

AACHalfErrors halfErrorsOf(const AACHalves& halves, const AACHalves::Lines& errors)
{
    std::array<float, 2> excess{};
    std::array<float, 2> squares{};
    float product = 0;
    for (size_t line = 0; line < errors.size(); ++line) {
        const float first = halves.lines[0][line];
        const float second = halves.lines[1][line];
        const float noise = errors[line] * errors[line];
        excess[0] += 2 * errors[line] * first + noise * halves.firstShares[line];
        excess[1] += 2 * errors[line] * second + noise * (1 - halves.firstShares[line]);
        squares[0] += first * first;
        squares[1] += second * second;
        product += first * second;
    }
    AACHalfErrors result;
    for (size_t half = 0; half < 2; ++half)
        result.worst = std::max(result.worst, std::abs(excess[half]) / halves.energies[half]);
    // Adding a part of one half changes both, as far as they have lines in common.
    const float determinant = squares[0] * squares[1] - product * product;
    if (determinant > 1e-6F * squares[0] * squares[1]) {
        result.shifts[0] = (excess[1] * product - excess[0] * squares[1]) / determinant / 2;
        result.shifts[1] = (excess[0] * product - excess[1] * squares[0]) / determinant / 2;
    }
    return result;
}

} // namespace platform
