#pragma once

#include "platform/foundation/NSError.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriterInput.h"

#include <cstdint>
#include <memory>
#include <vector>

struct AVCodecParameters;

namespace platform {

/// Codes single frames for the writer; every packet is a key frame that needs no other. Encoders made with the same
/// settings are interchangeable: a packet decodes to the same picture whichever of them made it, and but for HEVC it is
/// the same packet. One thread at a time each.
class AVAssetWriterEncoder {
public:
    /// @return null for an unknown codec or a size that it cannot have; `error` says which
    [[nodiscard]] static std::unique_ptr<AVAssetWriterEncoder> create(const AVVideoSettings& settings,
                                                                      NSError* error = nullptr);

    virtual ~AVAssetWriterEncoder() = default;

    /// @param buffer  of the settings' size; let go of once its pixels are read
    /// @param packet  out: the coded frame
    [[nodiscard]] virtual bool encode(std::shared_ptr<CVPixelBuffer> buffer, std::vector<uint8_t>& packet,
                                      NSError* error = nullptr) = 0;

    /// Makes a packet of any encoder with these settings the movie's frame `index`: H.264 wants neighbouring key frames
    /// to carry different identifiers. Any thread.
    /// @return false for a packet that is no frame of these settings
    [[nodiscard]] virtual bool number(std::vector<uint8_t>& packet, uint64_t index) const
    {
        (void)packet;
        (void)index;
        return true;
    }

    /// What a file's header says of the packets. Valid as long as the encoder.
    virtual const AVCodecParameters& parameters() const = 0;

    /// Whether a decoder that was set up for the packets of one also understands those of the other.
    bool isAlike(const AVAssetWriterEncoder& other) const;
};

/// @name By library; for `create` alone
/// @{
[[nodiscard]] std::unique_ptr<AVAssetWriterEncoder> makeTurboJPEGEncoder(int width, int height, NSError* error);
/// @return null with an error for a codec that is not known
[[nodiscard]] std::unique_ptr<AVAssetWriterEncoder> makeFFmpegEncoder(const AVVideoSettings& settings, int width,
                                                                      int height, NSError* error);
/// @}

} // namespace platform
