#pragma once

#include "platform/foundation/NSError.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// Samples in a packet of AAC.
inline constexpr int kAACPacketLength = 1024;

/// Packets in a row.
class PacketRun final {
public:
    void append(std::span<const uint8_t> packet);
    size_t count() const { return ends_.size(); }
    std::span<const uint8_t> packet(size_t index) const;

private:
    std::vector<uint8_t> bytes_;
    std::vector<size_t> ends_;
};

/// The nearest rate, not below where there is one, that AAC can carry at up to 48 kHz.
int nearestAACRate(int sampleRateHz);

/// The decoder's configuration for low complexity AAC of one or two channels.
std::vector<uint8_t> configurationOfAAC(int sampleRateHz, int channels);

/// Encodes sound as low complexity AAC at 66 kbit/s a channel (less at low rates), without state between calls. The
/// first packet decodes to what lies before the first sample, so packet i + 1 decodes to frame i. Any thread.
///
/// @param samples      interleaved, whole frames of 1024
/// @param isCancelled  asked once a frame
/// @return at most one packet less than there are frames; nothing if cancelled (no error) or refused
std::optional<PacketRun> encodeAAC(std::span<const float> samples, int sampleRateHz, int channels,
                                   const std::function<bool()>& isCancelled, NSError* error = nullptr);

/// Sequence and shape of a packet's window, which must agree where packets of two encoders meet; nothing if they differ
/// between the channels or cannot be seen.
std::optional<uint8_t> windowOfAAC(std::span<const uint8_t> packet);

} // namespace platform
