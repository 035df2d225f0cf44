#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVMetadataItem.h"
#include "platform/media/AVMutableAudioMix.h"
#include "platform/media/CMTime.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Sound alone, encoded as AAC.
inline constexpr std::string_view kAVAssetExportPresetAppleM4A = "AVAssetExportPresetAppleM4A";
/// Packets are copied as they are.
inline constexpr std::string_view kAVAssetExportPresetPassthrough = "AVAssetExportPresetPassthrough";

inline constexpr std::string_view kAVFileTypeAppleM4A = "com.apple.m4a-audio";
inline constexpr std::string_view kAVFileTypeMPEG4 = "public.mpeg-4";

enum class AVAssetExportSessionStatus : int {
    Unknown = 0,
    Waiting = 1,
    Exporting = 2,
    Completed = 3,
    Failed = 4,
    Cancelled = 5
};

/// Writes an asset or composition as one file, in the background. The file appears under its name when it is whole and
/// flushed to the disk; a file that is there already is never overwritten. An export that was started goes on without
/// its session. Set properties before starting; everything else may be called on any thread.
class AVAssetExportSession final {
public:
    AVAssetExportSession(AVAssetPtr asset, std::string presetName);
    ~AVAssetExportSession();
    AVAssetExportSession(const AVAssetExportSession&) = delete;
    AVAssetExportSession& operator=(const AVAssetExportSession&) = delete;

    void setOutputFileType(std::string_view type);
    void setOutputURL(NSURL url);
    /// Clipped to the content; unset means all of it.
    void setTimeRange(CMTimeRange range);
    void setAudioMix(AVMutableAudioMix mix);
    /// Where the output grows under a hidden name, which stays behind if the process is killed; unset, beside its
    /// place. From another disk it is copied in the end.
    void setDirectoryForTemporaryFiles(NSURL folder);
    /// A movie tells the title among these, by its common key. When it was made it tells anyway.
    void setMetadata(AVMetadataItemList metadata);
    /// Whether a movie's index comes before its media. A sound file's always comes behind.
    void setShouldOptimizeForNetworkUse(bool shouldOptimize);
    /// Where the output goes if its name was taken while it was written; without this the export then fails.
    void setOutputURLWhenTaken(std::function<NSURL(const NSURL& taken)> nextFreeURL);

    /// Starts. What speaks against it at once makes the session fail before this returns; else the status reads
    /// exporting (or later) when it does. `handler` is called once, at the end, on a queue of the system's.
    void exportAsynchronouslyWithCompletionHandler(std::move_only_function<void()> handler);

    AVAssetExportSessionStatus status() const;
    /// 0 to 1; never falls.
    float progress() const;
    /// Why it failed; nothing in any other status.
    std::optional<NSError> error() const;
    /// Where the output lies, or will.
    std::optional<NSURL> outputURL() const;

    /// Ends the export, if it has not ended, and waits for that; nothing of the output is left. Not from the handler.
    void cancelExport();

    /// Waits for the end of the export, at most so long.
    /// @return whether the session has completed, failed or been cancelled
    bool waitForEnd(double seconds) const;

private:
    struct State;
    const std::shared_ptr<State> state_;
};

} // namespace platform
