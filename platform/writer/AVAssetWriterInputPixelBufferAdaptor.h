#pragma once

#include "platform/media/CMTime.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriterInput.h"

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

private:
    const std::shared_ptr<AVAssetWriterInput> input_;
};

} // namespace platform
