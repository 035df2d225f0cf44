#pragma once

#include "platform/aac/AACHalves.h"
#include "platform/aac/AACPacket.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

/// Finds the steps of a packet's bands and writes it. No state between packets; one thread at a time.
class AACPacketCoder final {
public:
    /// @param wantedBits  the packet takes about as many; less where the sound needs no more
    /// @param packet      its channels are used up
    std::vector<uint8_t> code(AACPacket& packet, int wantedBits);

private:
    /// Keeps the energy of each half of left and right.
    void keepHalfLevels(AACPacket& packet);
    /// Writes what decoding adds to the lines of left and right to `changes_`.
    void findErrors(const AACPacket& packet);
    /// Quantizes the lines with so much of each half added to them.
    void quantizeShifted(AACPacket& packet, const std::array<std::array<float, 2>, 2>& shifts);

    /// Of the lines of each channel.
    std::array<AACHalves::Lines, 2> changes_{};
};

} // namespace platform
