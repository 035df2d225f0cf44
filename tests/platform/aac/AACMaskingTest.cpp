#include "platform/aac/AACMasking.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

using namespace platform;

namespace {

constexpr int kRate = 44100;
using Bands = std::array<float, 64>;

Bands maskedBy(std::span<const float> lines)
{
    Bands energies{};
    Bands thresholds{};
    AACMasking(longBandsOfAAC(kRate), kRate).measure(lines, energies, thresholds);
    return thresholds;
}

size_t bandOf(size_t line)
{
    size_t band = 0;
    while (longBandsOfAAC(kRate)[band + 1] <= line)
        ++band;
    return band;
}

TEST(AACMasking, HearsASoftToneAsOneBesideAMuchLouderSoundFarBelow)
{
    // At 4 kHz, where the ear is most sensitive.
    constexpr size_t kTone = 186;
    std::vector<float> lines(1024);
    lines[kTone] = 4000;
    const float alone = maskedBy(lines)[bandOf(kTone)];
    lines[0] = lines[1] = 3e7F;
    const float beside = maskedBy(lines)[bandOf(kTone)];
    // A tone hides noise 18 dB below it.
    EXPECT_NEAR(alone / (4000 * 4000), 0.0158, 0.0001);
    EXPECT_NEAR(beside / alone, 1, 0.001);
}

} // namespace
