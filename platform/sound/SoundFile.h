#pragma once

#include "platform/foundation/NSURL.h"
#include "platform/sound/SoundTimeline.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// What can be copied into an MPEG-4 file as it is.
enum class SoundCodec { Other, AAC, ALAC };

/// A sound track and how it is stored.
struct SoundFacts {
    NSURL url;
    int streamIndex = 0;
    int sampleRateHz = 0;
    /// As read: 1 or 2; more channels are mixed down to 2.
    int channels = 0;
    SoundTimeline timeline = {};

    /// @name For copying packets
    /// @{
    /// Other: not copyable. AAC is of the low complexity kind, with at most two channels.
    SoundCodec codec = SoundCodec::Other;
    /// The decoder's configuration.
    std::vector<uint8_t> configuration = {};
    /// Samples that a packet decodes to; every packet but the last has as many.
    int packetLength = 0;
    /// @}
};

/// Looks at a file's sound track; files without an index are scanned.
/// @return nothing if the file cannot be read, has no sound or the sound is empty; `error` tells which
[[nodiscard]] std::optional<SoundFacts> readSoundFacts(const NSURL& url, std::optional<int> streamIndex,
                                                       NSError* error = nullptr);

/// Decodes a sound track from any place on its time line, exact to the sample, at a rate and in a number of channels of
/// the caller's choice. Takes little memory whatever the length. One thread at a time.
class SoundReader final {
public:
    /// @param sampleRateHz  positions and lengths of this reader count samples at this rate
    /// @param channels      not less than the facts have
    [[nodiscard]] static std::unique_ptr<SoundReader> open(SoundFacts facts, int sampleRateHz, int channels,
                                                           NSError* error = nullptr);
    ~SoundReader();

    /// Samples from `position` on, interleaved, full scale at +-1. Reading on from where the last call ended is cheap.
    /// Undecodable stretches are silent.
    /// @return frames written; fewer than there is room for only at the end
    size_t read(int64_t position, std::span<float> samples);

    /// Why the last `read` ended before the time line does; nothing where the file holds all that it says.
    std::optional<NSError> failure() const;

private:
    struct State;
    explicit SoundReader(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

/// Reads a sound track's packets, for copying. One thread at a time.
class SoundPacketReader final {
public:
    [[nodiscard]] static std::unique_ptr<SoundPacketReader> open(const SoundFacts& facts, NSError* error = nullptr);
    ~SoundPacketReader();

    /// The packet of this index, the first of the file being 0; valid until the next call. Reading in order is cheap.
    /// @return empty at the end of the file or where it is broken
    std::span<const uint8_t> packet(int64_t index);

private:
    struct State;
    explicit SoundPacketReader(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace platform
