#pragma once

#include "platform/aac/AACHalves.h"
#include "platform/aac/AACTransform.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace platform {

/// One channel of a packet: its lines in bands, and how they are to be coded.
struct AACChannel {
    static constexpr size_t kMostBands = 120;

    AACSequence sequence = AACSequence::Long;
    /// Short windows in each group; a single 1 for a long window.
    std::vector<uint8_t> groups = {1};
    /// Where each band starts, in lines, group by group; the last entry is the end. All are multiples of 4.
    std::vector<uint16_t> bandStarts;
    /// Of grouped short windows: by group, band, then window.
    alignas(32) std::array<float, AACTransform::kLines> lines{};
    /// Energy of each band, and that of the noise that it hides.
    std::array<float, kMostBands> energies{};
    std::array<float, kMostBands> thresholds{};
    /// Noise of a line with which the halves' levels can still be kept.
    std::array<float, kMostBands> levelNoises{};

    /// @name Written by AACPacketCoder
    /// @{
    /// What lines are rounded from, their magnitudes to the power of 3/4; and the largest of each band.
    alignas(32) std::array<float, AACTransform::kLines> roots{};
    std::array<float, kMostBands> largestRoots{};
    alignas(32) std::array<int32_t, AACTransform::kLines> values{};
    /// Of the magnitudes of each band's values.
    std::array<int, kMostBands> largest{};
    std::array<int, kMostBands> wishedSteps{};
    std::array<int, kMostBands> finestSteps{};
    std::array<int, kMostBands> steps{};
    /// What roots are multiplied by before they are rounded.
    std::array<float, kMostBands> gains{};
    std::array<uint8_t, kMostBands> books{};
    /// @}

    bool isShort() const { return sequence == AACSequence::Short; }
    /// Bits of a section's length.
    int lengthBits() const { return isShort() ? 3 : 5; }
    size_t bandCount() const { return bandStarts.size() - 1; }
    size_t bandsPerGroup() const { return bandCount() / groups.size(); }
    size_t width(size_t band) const { return size_t{bandStarts[band + 1]} - bandStarts[band]; }
    std::span<const int32_t> valuesOf(size_t band) const
    {
        return std::span(values).subspan(bandStarts[band], width(band));
    }
};

/// A packet before it is coded.
struct AACPacket {
    AACShape shape = AACShape::Sine;
    size_t channelCount = 1;
    std::array<AACChannel, 2> channels;
    /// Of left and right, also where the channels hold mean and difference.
    std::array<AACHalves, 2> halves;
    /// How far in decibels the sound's loudness in the course of the packet is from even.
    float unevenness = 0;
    /// Whether both channels have the same sequence, groups and bands.
    bool sharesWindow = false;
    /// Bands of which the channels hold mean and half difference; only where they share their window.
    std::array<bool, AACChannel::kMostBands> isMidSide{};
};

} // namespace platform
