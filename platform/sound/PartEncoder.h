#pragma once

#include "platform/aac/AACEncoder.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSError.h"
#include "platform/sound/ExportControl.h"
#include "platform/sound/SoundMixer.h"
#include "platform/sound/SoundPlan.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// Where packets lie: packet i decodes to the 1024 samples of the grid from i * 1024 on; the first sample of the range
/// lies at `start`.
struct PacketGrid {
    int64_t start = 0;
    /// Samples of the range.
    int64_t length = 0;

    int64_t packets() const { return (start + length + kAACPacketLength - 1) / kAACPacketLength; }
};

/// A part of the sound while it is encoded.
struct EncodedPart {
    int64_t firstPacket = 0;
    std::vector<float> samples;
    /// The window of another encoder's packet before the first.
    std::optional<AACWindow> before;

    /// @name Once it is finished, and then not changed
    /// @{
    int64_t count() const NO_THREAD_SAFETY_ANALYSIS { return static_cast<int64_t>(packets->count()); }
    std::span<const uint8_t> packet(int64_t index) const NO_THREAD_SAFETY_ANALYSIS
    {
        return packets->packet(static_cast<size_t>(index));
    }
    /// @}

    Lock lock;
    Condition finished;
    bool isFinished GUARDED_BY(lock) = false;
    std::optional<PacketRun> packets GUARDED_BY(lock);
    NSError error GUARDED_BY(lock);
};

/// Encodes a plan's sound in parts on all processors and hands on the packets in order. One thread at a time.
class PartEncoder final {
public:
    /// @param plan    outlives this, as `control` does
    /// @param from    the first packet that is wanted
    /// @param before  the window of the packet before it, where that comes from another encoder
    PartEncoder(const SoundPlan& plan, PacketGrid grid, int64_t from, std::optional<AACWindow> before,
                const ExportControl& control);
    ~PartEncoder() { cancelled_->store(true); }
    PartEncoder(const PartEncoder&) = delete;
    PartEncoder& operator=(const PartEncoder&) = delete;

    /// The grid; shorter than it was asked for once the sound is known to end early.
    const PacketGrid& grid() const { return grid_; }

    /// The next part's packets, encoded; null at the end, when cancelled or on failure.
    [[nodiscard]] std::shared_ptr<EncodedPart> next(NSError* error);

private:
    [[nodiscard]] bool start(NSError* error);
    [[nodiscard]] bool waitFor(EncodedPart& part, NSError* error);

    const SoundPlan& plan_;
    PacketGrid grid_;
    const ExportControl& control_;
    SoundMixer mixer_;
    const int64_t partPackets_;
    int64_t nextPacket_ = 0;
    std::optional<AACWindow> before_;
    std::deque<std::shared_ptr<EncodedPart>> running_;
    /// The last samples of the newest part, with which the next one begins.
    std::vector<float> tail_;
    const std::shared_ptr<std::atomic<bool>> cancelled_;
};

} // namespace platform
