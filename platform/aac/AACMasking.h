#pragma once

#include "platform/aac/AACTables.h"

#include <span>
#include <vector>

namespace platform {

/// How much noise a listener does not hear in each band, beside the sound of the same window.
class AACMasking final {
public:
    AACMasking(AACBandStarts bands, int sampleRateHz);

    AACBandStarts bands() const { return bands_; }

    /// @param lines       of one window, full scale of samples at 32768
    /// @param energies    out: sums of squares, one a band
    /// @param thresholds  out: energy of noise that is masked, one a band
    void measure(std::span<const float> lines, std::span<float> energies, std::span<float> thresholds);

private:
    struct Band {
        /// Energy that is heard in silence.
        float quiet = 0;
        /// How much of a band's masking reaches the next band above and the next below.
        float upward = 0;
        float downward = 0;
        /// Lines around the band that tell whether it is a tone.
        size_t firstNeighbour = 0;
        size_t endNeighbour = 0;
    };

    const AACBandStarts bands_;
    std::vector<Band> properties_;
    /// Of each line, whatever its phase.
    std::vector<float> powers_;
    std::vector<float> magnitudes_;
};

} // namespace platform
