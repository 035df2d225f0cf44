#include "client/reader/SoundRange.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace stillora {

platform::CMTimeRange timeRangeOf(const std::optional<SoundFacts::Selection>& selection, int sampleRateHz)
{
    if (!selection)
        return platform::kCMTimeRangeZero;
    const double start = selection->start.count() * sampleRateHz;
    const double length = selection->end.count() * sampleRateHz - start;
    // What decimals come to in binary is not to cost a sample.
    constexpr double kNothing = 1e-6;
    return {platform::CMTimeMake(std::llround(start), sampleRateHz),
            platform::CMTimeMake(std::max<int64_t>(1, static_cast<int64_t>(length + kNothing)), sampleRateHz)};
}

} // namespace stillora
