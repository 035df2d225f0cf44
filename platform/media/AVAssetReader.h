#pragma once

#include "platform/foundation/NSError.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVAssetReaderTrackOutput.h"
#include "platform/media/CMTime.h"

#include <memory>
#include <optional>
#include <vector>

namespace platform {

enum class AVAssetReaderStatus : int { Unknown = 0, Reading = 1, Completed = 2, Failed = 3, Cancelled = 4 };

/// What a reader and its outputs share.
class AVAssetReaderSession;

/// Reads the samples of a file's tracks. Reading ends well when every output has handed out all of its samples, and
/// badly when nothing can be decoded or more than a second is missing of what the file's index promises. Set up on one
/// thread; `status`, `error` and `cancelReading` may be called on any.
class AVAssetReader final {
public:
    /// @param asset  a file; others cannot be read
    /// @return null if the asset is no file, or the file is not there any more or cannot be opened; `error` says why
    [[nodiscard]] static std::unique_ptr<AVAssetReader> initWithAsset(const AVAssetPtr& asset,
                                                                      NSError* error = nullptr);
    /// Cancels what still reads.
    ~AVAssetReader();
    AVAssetReader(const AVAssetReader&) = delete;
    AVAssetReader& operator=(const AVAssetReader&) = delete;

    const AVAssetPtr& asset() const { return asset_; }

    /// Clipped to the track; unset means all of it. Before reading starts.
    void setTimeRange(CMTimeRange range);
    CMTimeRange timeRange() const { return timeRange_; }

    /// Whether reading has not started, the output's track is one of the asset's sound tracks, no reader has the output
    /// yet, and its settings are such as sound is read with here: linear PCM, 32-bit integers, one channel.
    bool canAddOutput(const AVAssetReaderTrackOutputPtr& output) const;
    /// Only what `canAddOutput` allows; others are left alone.
    void addOutput(const AVAssetReaderTrackOutputPtr& output);

    /// Once.
    /// @return false if it cannot; status and error then say why
    bool startReading();
    /// Outputs hand out no more samples.
    void cancelReading();

    AVAssetReaderStatus status() const;
    /// Why reading failed; nothing in any other status.
    std::optional<NSError> error() const;

private:
    explicit AVAssetReader(AVAssetPtr asset);

    const AVAssetPtr asset_;
    CMTimeRange timeRange_;
    std::vector<AVAssetReaderTrackOutputPtr> outputs_;
    const std::shared_ptr<AVAssetReaderSession> session_;
};

} // namespace platform
