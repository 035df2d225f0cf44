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

/// Packets whose sound is looked at before and behind those that are encoded, beside their own.
inline constexpr int kAACLookBehind = 3;
inline constexpr int kAACLookAhead = 4;

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

/// Sequence and shape of a packet's window; nothing if they differ between the channels or cannot be seen.
struct AACWindow {
    bool fallsShortly = false;
    bool risesShortly = false;
    bool isKaiserBessel = false;
};
std::optional<AACWindow> windowOfAAC(std::span<const uint8_t> packet);

/// Encodes sound as low complexity AAC at about 67 kbit/s a channel (less at low rates), more where noise would be
/// heard. The level of 1024 samples is kept, as a rule to 0.3 dB. A packet depends on the sound of kAACLookBehind
/// packets before it and kAACLookAhead behind it alone, so sound encoded in parts comes out the same. Any thread.
///
/// @param samples      interleaved, whole frames of 1024, full scale at +-1, all finite. The first kAACLookBehind
///                     frames are only looked at. The first packet's window begins behind them and is two frames long;
///                     an overlap with the packet before it makes up its first frame.
/// @param before       the window of the packet before the first one, where that comes from another encoder
/// @param isCancelled  asked once a packet
/// @return kAACLookBehind + kAACLookAhead packets less than there are frames; nothing if cancelled (no error) or
///         on failure
[[nodiscard]] std::optional<PacketRun> encodeAAC(std::span<const float> samples, int sampleRateHz, int channels,
                                                 const std::optional<AACWindow>& before,
                                                 const std::function<bool()>& isCancelled, NSError* error = nullptr);

} // namespace platform
