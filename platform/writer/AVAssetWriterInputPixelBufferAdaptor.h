#pragma once

#include "platform/media/CMTime.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriterInput.h"

#include <cstdint>
#include <memory>

namespace platform {

/// Takes frames for an input.
class AVAssetWriterInputPixelBufferAdaptor final {
public:
    explicit AVAssetWriterInputPixelBufferAdaptor(std::shared_ptr<AVAssetWriterInput> input);

    const std::shared_ptr<AVAssetWriterInput>& assetWriterInput() const { return input_; }

    /// Hands one frame to the encoders, which let go of it as soon as it is encoded. Where the input is not ready the
    /// frame is taken all the same and waits. Any thread, one at a time; not during `cancelWriting`.
    ///
    /// @param buffer            of the video's size, not locked; shared with the writer, its pixels no longer changed
    /// @param presentationTime  numeric, not before the session's start and later than the frame before
    /// @return false if the writer is not writing, or fails by this frame; the writer's error then says why
    [[nodiscard]] bool appendPixelBuffer(std::shared_ptr<CVPixelBuffer> buffer, CMTime presentationTime);

    /// Takes a frame's pixels before its turn to be appended has come, and codes frames on this thread unless the
    /// writer's own threads keep up: what is finished early then waits as a packet, at a tenth of the memory or less.
    /// Does nothing where the writer is not writing, or has a frame of this index. Any thread, and several at once.
    ///
    /// @param buffer  of the video's size, not locked; without its pixels afterwards, and still to be appended
    /// @param index   which of the appended frames it will be, counted from 0
    void codeAhead(CVPixelBuffer& buffer, uint64_t index);

private:
    const std::shared_ptr<AVAssetWriterInput> input_;
};

} // namespace platform
