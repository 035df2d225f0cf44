#pragma once

#include "platform/media/AVAsset.h"
#include "platform/media/CMSampleBuffer.h"

#include <cstdint>
#include <memory>

namespace platform {

class AVAssetReader;
class AVAssetReaderSession;

/// The four-character code 'lpcm'.
inline constexpr uint32_t kAudioFormatLinearPCM = 0x6C70636D;

/// How samples are handed out; each member stands for the settings key of its name.
struct AVAudioSettings {
    /// AVFormatIDKey
    uint32_t formatID = 0;
    /// AVLinearPCMBitDepthKey
    int linearPCMBitDepth = 0;
    /// AVLinearPCMIsFloatKey
    bool linearPCMIsFloat = false;
    /// AVNumberOfChannelsKey
    int numberOfChannels = 0;

    friend bool operator==(const AVAudioSettings&, const AVAudioSettings&) = default;
};

/// The samples of one sound track at the track's own rate, exact to the sample. One channel is the mean of a file's
/// two; of more channels, the mean of the two that they are mixed down to. Memory does not grow with the length. One
/// thread at a time.
class AVAssetReaderTrackOutput final {
public:
    AVAssetReaderTrackOutput(AVAssetTrack track, AVAudioSettings outputSettings);
    ~AVAssetReaderTrackOutput();
    AVAssetReaderTrackOutput(const AVAssetReaderTrackOutput&) = delete;
    AVAssetReaderTrackOutput& operator=(const AVAssetReaderTrackOutput&) = delete;

    const AVAssetTrack& track() const { return track_; }
    const AVAudioSettings& outputSettings() const { return outputSettings_; }

    /// Whether every buffer has memory of its own, which the caller may keep for long; so at first. Otherwise the
    /// memory of a buffer that was let go serves for the next one.
    bool alwaysCopiesSampleData() const { return alwaysCopiesSampleData_; }
    void setAlwaysCopiesSampleData(bool alwaysCopies) { alwaysCopiesSampleData_ = alwaysCopies; }

    /// The next samples, in order.
    /// @return null when there are no more, or no more can be had: the reader's status tells which
    CMSampleBufferPtr copyNextSampleBuffer();

private:
    friend class AVAssetReader;
    struct Source;

    /// @param timeRange  invalid: all of the track
    [[nodiscard]] bool start(CMTimeRange timeRange, NSError* error);
    std::shared_ptr<CMSampleBuffer::Data> emptyData();

    const AVAssetTrack track_;
    const AVAudioSettings outputSettings_;
    bool alwaysCopiesSampleData_ = true;
    /// The reader's; null before the output is added to one.
    std::shared_ptr<AVAssetReaderSession> session_;
    /// Null before reading starts and after it has ended.
    std::unique_ptr<Source> source_;
    std::shared_ptr<CMSampleBuffer::Data> data_;
};

using AVAssetReaderTrackOutputPtr = std::shared_ptr<AVAssetReaderTrackOutput>;

} // namespace platform
