#pragma once

#include "platform/foundation/NSError.h"
#include "platform/sound/SoundPlan.h"
#include "platform/sound/SoundReader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// Reads a plan's sound, pieces added together, volumes applied. One thread at a time.
class SoundMixer final {
public:
    /// @param plan  has a piece at least, and outlives this
    explicit SoundMixer(const SoundPlan& plan);

    /// Where sound ends for good, earlier than planned, because the last file holds less than it says.
    std::optional<int64_t> end() const { return end_; }

    /// The sound from `position` on; silence where there is none. Positions go forward.
    [[nodiscard]] bool read(int64_t position, std::span<float> samples, NSError* error);

private:
    struct Voice {
        const SoundPiece* piece = nullptr;
        /// While the piece is heard.
        std::unique_ptr<SoundReader> reader = nullptr;
    };

    int64_t startOf(const Voice& voice) const;
    int64_t endOf(const Voice& voice) const;
    /// Adds what a voice has from `from` up to `to` to the samples, which begin at `position`.
    [[nodiscard]] bool add(Voice& voice, int64_t from, int64_t to, int64_t position, std::span<float> samples,
                           NSError* error);

    const SoundPlan& plan_;
    std::vector<Voice> voices_;
    std::vector<float> block_;
    std::optional<int64_t> end_;
};

} // namespace platform
