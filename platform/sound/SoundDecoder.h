#pragma once

#include "platform/foundation/NSError.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MediaInput.h"
#include "platform/sound/SoundFacts.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// Decodes what a file stores, by positions in the decoder's output. The file is opened once. One thread at a time.
class SoundDecoder final {
public:
    /// @param facts  outlive this
    [[nodiscard]] bool open(const SoundFacts& facts, NSError* error);

    /// Samples at a place, or silence where there are none.
    /// @return frames written; fewer than there is room for only at the end of the file
    size_t read(int64_t position, std::span<float> samples);

    /// The library's number for what ended the file before its time; 0 if nothing did. Only the index of a movie
    /// promises sound that need not be there: other lengths come from the file's size or from counting.
    int inputError() const;

private:
    size_t buffered() const { return buffer_.size() / static_cast<size_t>(facts_->channels) - bufferStart_; }

    [[nodiscard]] bool reopen(NSError* error);

    /// Forgets what was decoded; the next frame tells where it stands.
    void restart();

    /// Places the decoder so that the next sample is `target`.
    bool seek(int64_t target);
    bool placeInput(int64_t from);

    /// Decodes and drops what comes before `target`; false if it lies behind the decoder or beyond the end.
    bool skipTo(int64_t target);

    /// Decodes until there is more in the buffer.
    bool decode();
    void feed();
    int64_t leadOfFirstPacket() const;
    bool isBeforeNeed() const;
    int64_t inSamples(int64_t time) const;

    /// Moves the decoded frame into the buffer, after silence for what was lost before it.
    void takeFrame();

    /// The frame's samples as interleaved floats of at most two channels, in the buffer.
    size_t convertFrame();
    bool prepareMixer();

    const SoundFacts* facts_ = nullptr;
    InputPtr input_;
    AVStream* stream_ = nullptr;
    CodecPtr decoder_;
    PacketPtr packet_;
    FramePtr frame_;
    ResamplerPtr mixer_;
    int mixerFormat_ = -1;
    int mixerChannels_ = 0;
    bool countsPackets_ = false;
    /// Nothing was read since the file was opened.
    bool isUntouched_ = false;
    bool atEnd_ = false;
    /// What the end of the file was told by: the library's number, which may be that of a regular end.
    int inputError_ = 0;
    bool lostPacket_ = false;
    int64_t skipPacketsBefore_ = INT64_MIN;
    /// By how much the demuxer's times are too late, in its own units.
    int64_t lateBy_ = 0;
    /// Decoded samples and how many of them are used up.
    std::vector<float> buffer_;
    size_t bufferStart_ = 0;
    /// Where the first unused sample stands; -1 before the first frame.
    int64_t position_ = -1;
    /// Where the next frame stands if nothing is lost.
    std::optional<int64_t> nextFrame_;
};

} // namespace platform
