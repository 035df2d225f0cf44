#pragma once

#include "platform/aac/AACTransform.h"

#include <array>
#include <span>

namespace platform {

/// One channel's sound in the two halves of a packet's window. A decoder puts each of them into another stretch of 1024
/// samples, whose level is to be that of the sound.
struct AACHalves {
    using Lines = std::array<float, AACTransform::kLines>;

    /// Lines of each half's sound, with silence in the other half; in the order of the channel's lines, which they add
    /// up to.
    std::array<Lines, 2> lines{};
    /// The part of a line's energy that lies in the first half.
    Lines firstShares{};
    /// Energy of each half's sound, in the scale of the lines.
    std::array<float, 2> energies{};
    /// Of the lines of each half, and of one half times the other.
    std::array<float, 2> squares{};
    float product = 0;

    /// Sets them once the lines are there.
    void addUp();
};

/// What errors of lines do to the energies of the halves.
struct AACHalfErrors {
    /// The larger error, as a part of its half's energy.
    float worst = 0;
    /// About which parts of each half's sound have to be added to the lines to be rid of both; 0 where nothing helps.
    std::array<float, 2> shifts{};
};

/// Leaves the first half of a window's samples and returns the energies of both in the scale of lines. One half turns
/// into the other as softly as such windows do: an edge would be heard as lines that the sound does not have.
std::array<float, 2> takeFirstHalf(std::span<float, AACTransform::kSamples> samples, bool isShort);

/// @param errors  of the channel's lines, what is decoded less what was
AACHalfErrors halfErrorsOf(const AACHalves& halves, const AACHalves::Lines& errors);

} // namespace platform
