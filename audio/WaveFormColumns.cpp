#include "audio/WaveFormColumns.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

/// 1 / 2^31: full scale is 0 dB.
constexpr float kFullScale = 4.656613e-10F;
/// The amplitude of -25 dB, 10^(-25/20).
constexpr float kQuietestAmplitude = 0.056234133F;
/// Factors that are multiplied side by side.
constexpr size_t kLanes = 8;

uint64_t lengthCountedInSinglePrecision(uint64_t samples)
{
    // Adding 1 to 2^24 leaves 2^24.
    constexpr float kHighestCount = 16777216.0F;
    const auto length = static_cast<float>(samples);
    return length <= kHighestCount ? static_cast<uint64_t>(length) : std::numeric_limits<uint64_t>::max();
}

} // namespace

WaveFormColumns::WaveFormColumns(uint64_t samplesPerColumn)
    : columnLength_(lengthCountedInSinglePrecision(std::max<uint64_t>(samplesPerColumn, 1)))
{}

void WaveFormColumns::add(std::span<const int32_t> samples)
{
    while (!samples.empty()) {
        const uint64_t room = std::min<uint64_t>(kBatch - waitingCount_, columnLength_ - count_);
        const size_t taken = static_cast<size_t>(std::min<uint64_t>(room, samples.size()));
        const auto part = samples.first(taken);
        samples = samples.subspan(taken);
        count_ += taken;
        const bool isFull = count_ == columnLength_;
        if (waitingCount_ == 0 && (taken == kBatch || isFull)) {
            addBatch(part);
        } else {
            std::copy(part.begin(), part.end(), waiting_.begin() + static_cast<ptrdiff_t>(waitingCount_));
            waitingCount_ += taken;
            if (waitingCount_ == kBatch || isFull) {
                addBatch(std::span(waiting_).first(waitingCount_));
                waitingCount_ = 0;
            }
        }
        if (isFull)
            endColumn();
    }
}

bool WaveFormColumns::append(const WaveFormColumns& next)
{
    if (count_ > 0)
        return false;
    std::vector<float> values = std::move(values_);
    values.insert(values.end(), next.values_.begin(), next.values_.end());
    const float largest = std::max(largest_, next.largest_);
    *this = next;
    values_ = std::move(values);
    largest_ = largest;
    return true;
}

/// A sum of logarithms is the logarithm of the product, of which one is taken for the batch. The factors are not
/// smaller than 0.056, so that 128 of them are not smaller than 1e-160, and the product loses less than 1e-13 of its
/// value: far less than single logarithms in single precision would.
void WaveFormColumns::addBatch(std::span<const int32_t> samples)
{
    std::array<double, kLanes> products;
    products.fill(1);
    std::array<int32_t, kLanes> quiet{};
    const auto multiply = [&](const int32_t* from, size_t count) {
        for (size_t lane = 0; lane < count; ++lane) {
            const float amplitude = std::abs(static_cast<float>(from[lane])) * kFullScale;
            const bool isQuiet = amplitude <= kQuietestAmplitude;
            quiet[lane] += isQuiet ? 1 : 0;
            const float factor = isQuiet || amplitude >= 1 ? 1.0F : amplitude;
            products[lane] *= static_cast<double>(factor);
        }
    };
    const size_t whole = samples.size() - samples.size() % kLanes;
    for (size_t i = 0; i < whole; i += kLanes)
        multiply(samples.data() + i, kLanes);
    multiply(samples.data() + whole, samples.size() - whole);

    double product = 1;
    int64_t quietCount = 0;
    for (size_t lane = 0; lane < kLanes; ++lane) {
        product *= products[lane];
        quietCount += quiet[lane];
    }
    sum_ += 20 * std::log10(product) + static_cast<double>(kQuietest) * static_cast<double>(quietCount);
}

void WaveFormColumns::endColumn()
{
    const double mean = std::clamp(sum_ / static_cast<double>(count_), static_cast<double>(kQuietest), 0.0);
    values_.push_back(static_cast<float>(mean));
    largest_ = std::max(largest_, values_.back());
    sum_ = 0;
    count_ = 0;
}
