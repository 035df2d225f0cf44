#pragma once

#include "platform/foundation/NSError.h"
#include "platform/sound/SoundFacts.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>

namespace platform {

/// Decodes a sound track from any place on its time line, exact to the sample, at a rate and in a number of channels of
/// the caller's choice. Takes little memory whatever the length. One thread at a time.
class SoundReader final {
public:
    /// @param sampleRateHz  positions and lengths of this reader count samples at this rate
    /// @param channels      not less than the facts have
    [[nodiscard]] static std::unique_ptr<SoundReader> open(SoundFactsPtr facts, int sampleRateHz, int channels,
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

} // namespace platform
