#include "tests/platform/aac/NoiseMeasure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>

namespace noisemeasure {
namespace {

constexpr size_t kPacket = 1024;
constexpr size_t kWindow = 2 * kPacket;
constexpr size_t kBarks = 25;
using Bands = std::array<double, kBarks>;

/// In place; the size is a power of two.
void transform(std::vector<std::complex<double>>& values)
{
    const size_t size = values.size();
    for (size_t i = 1, j = 0; i < size; ++i) {
        size_t bit = size / 2;
        for (; j & bit; bit /= 2)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(values[i], values[j]);
    }
    for (size_t length = 2; length <= size; length *= 2) {
        const auto turn = std::polar(1.0, -2 * std::numbers::pi / static_cast<double>(length));
        for (size_t start = 0; start < size; start += length) {
            std::complex<double> factor = 1;
            for (size_t i = start; i < start + length / 2; ++i) {
                const auto odd = values[i + length / 2] * factor;
                values[i + length / 2] = values[i] - odd;
                values[i] += odd;
                factor *= turn;
            }
        }
    }
}

double hann(size_t i)
{
    return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / kWindow);
}

size_t barkOf(double hertz)
{
    const double bark = 13 * std::atan(0.00076 * hertz) + 3.5 * std::atan(std::pow(hertz / 7500, 2));
    return std::min(kBarks - 1, static_cast<size_t>(bark));
}

double hertzOf(size_t line, int rateHz)
{
    return static_cast<double>(line) * rateHz / kWindow;
}

Bands quietOf(int rateHz)
{
    // The line of a full sine has the sum of half of the window as its magnitude.
    const double full = 20 * std::log10(kWindow / 4.0) - 96;
    Bands quiet;
    quiet.fill(1e30);
    for (size_t line = 0; line <= kPacket; ++line) {
        const double kilohertz = std::max(hertzOf(line, rateHz), 20.0) / 1000;
        const double level = 3.64 * std::pow(kilohertz, -0.8) - 6.5 * std::exp(-0.6 * std::pow(kilohertz - 3.3, 2)) +
                             1e-3 * std::pow(kilohertz, 4);
        double& least = quiet[barkOf(hertzOf(line, rateHz))];
        least = std::min(least, std::pow(10, (std::min(level, 90.0) + full) / 10));
    }
    return quiet;
}

Bands energiesOf(std::span<const float> sound, std::span<const float> heard, size_t start, int rateHz)
{
    std::vector<std::complex<double>> values(kWindow);
    for (size_t i = 0; i < kWindow; ++i) {
        const double other = heard.empty() ? 0 : heard[start + i];
        values[i] = (sound[start + i] - other) * hann(i);
    }
    transform(values);
    Bands energies{};
    for (size_t line = 0; line <= kPacket; ++line)
        energies[barkOf(hertzOf(line, rateHz))] += std::norm(values[line]);
    return energies;
}

double maskOf(const Bands& sound, size_t band)
{
    double sum = 0;
    for (size_t other = 0; other < kBarks; ++other) {
        const double barks = static_cast<double>(band) - static_cast<double>(other);
        sum += sound[other] * std::pow(10, -(13 + (barks > 0 ? 10 * barks : -25 * barks)) / 10);
    }
    return sum;
}

} // namespace

std::vector<double> noiseToMask(std::span<const float> sound, std::span<const float> heard, int rateHz)
{
    const Bands quiet = quietOf(rateHz);
    const size_t bands = barkOf(rateHz / 2.0) + 1;
    std::vector<double> ratios;
    for (size_t start = 0; start + kWindow <= std::min(sound.size(), heard.size()); start += kPacket) {
        const Bands energies = energiesOf(sound, {}, start, rateHz);
        const Bands noise = energiesOf(sound, heard, start, rateHz);
        double sum = 0;
        for (size_t band = 0; band < bands; ++band)
            sum += noise[band] / std::max(maskOf(energies, band), quiet[band]);
        ratios.push_back(std::max(-6.0, 10 * std::log10(sum / static_cast<double>(bands) + 1e-12)));
    }
    return ratios;
}

double largestLevelError(std::span<const float> sound, std::span<const float> heard)
{
    const auto energyOf = [](std::span<const float> part) {
        return std::inner_product(part.begin(), part.end(), part.begin(), 0.0);
    };
    double largest = 0;
    for (size_t start = 0; start + kPacket <= std::min(sound.size(), heard.size()); start += kPacket) {
        const double wanted = energyOf(sound.subspan(start, kPacket));
        const double got = energyOf(heard.subspan(start, kPacket));
        if (wanted > kPacket * 0.5e-6)
            largest = std::max(largest, std::abs(10 * std::log10(std::max(got, 1e-12) / wanted)));
    }
    return largest;
}

} // namespace noisemeasure
