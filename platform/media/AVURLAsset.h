#pragma once

#include "platform/bytes/ByteSource.h"
#include "platform/files/NSURL.h"
#include "platform/media/AVAsset.h"
#include "platform/media/CMTime.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

/// A media file by its location. Never fails to be made: a missing or foreign file has no tracks and an invalid
/// duration. The file is looked at on the first question, once, and kept open, where not too many are, for those who
/// read it afterwards. Any thread.
class AVURLAsset final : public AVAsset {
public:
    struct Options {
        /// Measure files without an index by scanning them, instead of estimating from the bit rate.
        bool preferPreciseDurationAndTiming = false;
    };

    explicit AVURLAsset(NSURL url);
    AVURLAsset(NSURL url, Options options);

    static std::shared_ptr<AVURLAsset> URLAssetWithURL(NSURL url)
    {
        return std::make_shared<AVURLAsset>(std::move(url));
    }

    const NSURL& URL() const { return url_; }
    /// The file that was looked at, if it is kept open; null too where another stands under its name by now.
    FileBytesPtr openedFile() const;
    /// Exact to the sample for indexed files; in the sample rate's scale for files that hold sound alone.
    CMTime duration() const override;
    std::vector<AVAssetTrack> tracks() const override;
    /// Of ID3 tags, of MPEG-4 and QuickTime files, and of others with common keys alone.
    AVMetadataItemList commonMetadata() const override;
    /// Unknown until somebody asked for a value, then loading, then loaded or, for a file that cannot be opened,
    /// failed.
    [[nodiscard]] AVKeyValueStatus statusOfValueForKey(std::string_view key, NSError* error = nullptr) const override;

protected:
    void loadValues() const override;

private:
    struct Contents;
    const Contents& contents() const;

    const NSURL url_;
    const Options options_;
    mutable std::once_flag once_;
    mutable std::shared_ptr<const Contents> contents_;
    mutable std::once_flag metadataOnce_;
    mutable AVMetadataItemList commonMetadata_;
    mutable std::atomic<AVKeyValueStatus> status_{AVKeyValueStatus::Unknown};
};

using AVURLAssetPtr = std::shared_ptr<AVURLAsset>;

} // namespace platform
