#pragma once

#include "platform/libav/FFmpegHandles.h"
#include "platform/sound/TimelineReader.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace platform {

/// Reads a time line at another rate than its file's. One thread at a time.
class SoundResampler final {
public:
    /// @param facts         outlive this, as `source` does, which reads them
    /// @param sampleRateHz  another rate than theirs; positions here count samples at it
    SoundResampler(const SoundFacts& facts, TimelineReader& source, int sampleRateHz);

    /// Samples from a place on; reading on from where the last call ended is cheap.
    /// @return frames written; fewer than there is room for only at the end
    size_t read(int64_t position, std::span<float> samples);

private:
    /// Starts anew far enough before `position` for the filter to have settled there.
    bool restartAt(int64_t position);
    bool makeFilter();
    size_t readOn(std::span<float> samples);
    /// Gives the filter the next block of input and takes what it has then.
    int feed(uint8_t* output, int room);
    /// Fills up a block that holds the last `count` frames. What the filter reaches beyond the end is what lies before
    /// it, turned about the last sample: after silence there would be an edge, which the filter would spread.
    void goOnBeyondEnd(std::span<float> block, size_t count) const;
    void remember(std::span<const float> samples);
    /// Where the output stands that belongs to a place of the input.
    int64_t outputAt(int64_t input) const;

    const SoundFacts& facts_;
    TimelineReader& source_;
    const int sampleRateHz_;
    /// Samples of a frame.
    const size_t width_;
    /// Output sample `toUnit_` * n stands where input sample `fromUnit_` * n does.
    const int64_t fromUnit_;
    const int64_t toUnit_;
    ResamplerPtr filter_;
    /// Where the next output stands; the input likewise.
    int64_t outputPosition_ = -1;
    int64_t inputPosition_ = 0;
    bool inputEnded_ = false;
    std::vector<float> block_;
    /// The last frames that the filter was given, at most as many as are reflected at the end.
    std::vector<float> lastInput_;
};

} // namespace platform
