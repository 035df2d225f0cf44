#pragma once

#include "platform/aac/AACHalves.h"
#include "platform/aac/AACTransform.h"

#include <array>
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
    /// Where each band starts, in lines, group by group; the last entry is the end.
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
    /// What lines are rounded from, and its magnitudes to the power of 3/4.
    alignas(32) std::array<float, AACTransform::kLines> targets{};
    alignas(32) std::array<float, AACTransform::kLines> roots{};
    alignas(32) std::array<int16_t, AACTransform::kLines> values{};
    std::array<int, kMostBands> wishedSteps{};
    std::array<int, kMostBands> finestSteps{};
    std::array<int, kMostBands> steps{};
    /// What roots are multiplied by before they are rounded.
    std::array<float, kMostBands> gains{};
    std::array<uint8_t, kMostBands> books{};
    /// @}

    bool isShort() const { return sequence == AACSequence::Short; }
    size_t bandCount() const { return bandStarts.size() - 1; }
    size_t bandsPerGroup() const { return bandCount() / groups.size(); }
    size_t width(size_t band) const { return size_t{bandStarts[band + 1]} - bandStarts[band]; }
    std::span<const int16_t> valuesOf(size_t band) const
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

/// Finds the steps of a packet's bands and writes it. No state between packets; one thread at a time.
class AACPacketCoder final {
public:
    AACPacketCoder();

    /// @param wantedBits  the packet takes about as many; less where the sound needs no more
    /// @param packet      its channels are used up
    std::vector<uint8_t> code(AACPacket& packet, int wantedBits);

private:
    void prepare(AACChannel& channel, float evenNoise) const;
    /// The least change of all steps with which the packet takes no more bits than it may.
    int offsetFor(AACPacket& packet, int wantedBits);
    /// Returns about how many bits the packet takes with all steps changed by `offset`.
    int64_t quantize(AACPacket& packet, int offset);
    void quantizeBand(AACChannel& channel, size_t band) const;
    /// Keeps the energy of every band.
    void keepBandLevels(AACChannel& channel) const;
    /// Keeps the energy of each half of left and right.
    void keepHalfLevels(AACPacket& packet);
    /// Writes what decoding adds to the lines of left and right to `changes_`.
    void findErrors(const AACPacket& packet);
    /// Quantizes the lines with so much of each half added to them.
    void quantizeShifted(AACPacket& packet, const std::array<std::array<float, 2>, 2>& shifts);
    int64_t chooseBooks(AACChannel& channel);
    void limitDifferences(AACChannel& channel);

    std::vector<float> fourThirds_;
    std::array<float, 256> inverseRootSteps_{};
    std::array<float, 256> stepSizes_{};
    /// Of the lines of each channel.
    std::array<AACHalves::Lines, 2> changes_{};
};

} // namespace platform
