#pragma once

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/media/CMTime.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

class AVAssetWriter;
class AVAssetWriterSession;

/// @name Codecs of pictures, by their four-character codes
/// @{
inline constexpr std::string_view kAVVideoCodecJPEG = "jpeg";
inline constexpr std::string_view kAVVideoCodecH264 = "avc1";
inline constexpr std::string_view kAVVideoCodecHEVC = "hvc1";
inline constexpr std::string_view kAVVideoCodecAppleProRes422 = "apcn";
inline constexpr std::string_view kAVVideoCodecAppleProRes4444 = "ap4h";
inline constexpr std::string_view kAVVideoCodecAppleProRes422HQ = "apch";
inline constexpr std::string_view kAVVideoCodecAppleProRes422LT = "apcs";
inline constexpr std::string_view kAVVideoCodecAppleProRes422Proxy = "apco";
inline constexpr std::string_view kAVVideoCodecAppleProRes4444XQ = "ap4x";
/// @}

/// Keeps the aspect of a frame and fills the rest with black; nothing to do where frame and video are of one size.
inline constexpr std::string_view kAVVideoScalingModeResizeAspect = "AVVideoScalingModeResizeAspect";

/// How the pictures of an input are coded; each member stands for the settings key of its name.
struct AVVideoSettings {
    /// AVVideoCodecKey
    std::string codec{kAVVideoCodecJPEG};
    /// AVVideoWidthKey, AVVideoHeightKey: pixels; even, 2 to 16384.
    double width = 0;
    double height = 0;
    /// AVVideoScalingModeKey
    std::string scalingMode{kAVVideoScalingModeResizeAspect};
};

/// One track of a movie that is being written. Any thread.
class AVAssetWriterInput final {
public:
    /// @param mediaType  kAVMediaTypeVideo
    AVAssetWriterInput(std::string_view mediaType, AVVideoSettings outputSettings);
    ~AVAssetWriterInput();
    AVAssetWriterInput(const AVAssetWriterInput&) = delete;
    AVAssetWriterInput& operator=(const AVAssetWriterInput&) = delete;

    const std::string& mediaType() const { return mediaType_; }
    const AVVideoSettings& outputSettings() const { return outputSettings_; }

    /// Kept as data: this writer never drops media.
    bool expectsMediaDataInRealTime() const { return expectsMediaDataInRealTime_.get(); }
    void setExpectsMediaDataInRealTime(bool value) { expectsMediaDataInRealTime_.set(value); }

    /// The most frames that will come; to be set before the writer starts. Room for their index is then kept at the
    /// front of the file, and one frame more fails the writer. Nothing: the file is rewritten once at the end to make
    /// room for the index.
    std::optional<size_t> maximumSampleCount() const { return maximumSampleCount_.get(); }
    void setMaximumSampleCount(std::optional<size_t> count) { maximumSampleCount_.set(count); }

    /// Whether there is room for another frame: the writer is writing, its session has started, the input is not
    /// finished and the short queue before the encoders is not full.
    bool isReadyForMoreMediaData() const;

    /// Runs `block` on `queue` whenever the input is ready for more, again each time it has returned and the input is
    /// ready still, until the input is finished or the writer has ended. Once, for an input that was added to a writer.
    void requestMediaDataWhenReadyOnQueue(std::shared_ptr<DispatchQueue> queue, std::function<void()> block);

    /// Takes a frame that is coded already, in place of one that would be coded here: as `appendPixelBuffer` of the
    /// adaptor does, and with the same end. Writes it on this thread, as soon as it is known how long it lasts.
    ///
    /// @param packet  as an encoder of these settings gives it; of H.264 and HEVC, behind start codes
    [[nodiscard]] bool appendPacket(std::vector<uint8_t> packet, CMTime presentationTime);

    /// No more media will come, and `block` is not called any more. A call that runs now goes on.
    void markAsFinished();

private:
    friend class AVAssetWriter;
    friend class AVAssetWriterInputPixelBufferAdaptor;

    std::shared_ptr<AVAssetWriterSession> session() const { return session_.get(); }

    const std::string mediaType_;
    const AVVideoSettings outputSettings_;
    AtomicProperty<bool> expectsMediaDataInRealTime_;
    AtomicProperty<std::optional<size_t>> maximumSampleCount_;
    /// The writer's; null until the input is added to one.
    AtomicProperty<std::shared_ptr<AVAssetWriterSession>> session_;
};

} // namespace platform
