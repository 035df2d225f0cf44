#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/foundation/NSError.h"
#include "platform/media/AVMetadataItem.h"
#include "platform/media/CMTime.h"
#include "platform/writer/AVAssetWriterInput.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace platform {

inline constexpr std::string_view kAVFileTypeQuickTimeMovie = "com.apple.quicktime-movie";

/// Where a writer stands, by the platform's numbers.
enum class AVAssetWriterStatus : int { Unknown = 0, Writing = 1, Completed = 2, Failed = 3, Cancelled = 4 };

class AVAssetWriterSession;

/// Writes one movie file. Frames are encoded in parallel on threads of its own, behind a short queue, and written in
/// order of appending. Every frame is a key frame and one packet at exactly its time; the last one lasts as long as the
/// one before it. Any thread, also `status`, `error` and the waits.
class AVAssetWriter final {
public:
    /// @param fileType  kAVFileTypeQuickTimeMovie
    /// @return null if a file is there already, or for another file type; `error` names the file and why
    [[nodiscard]] static std::shared_ptr<AVAssetWriter> assetWriterWithURL(const NSURL& url, std::string_view fileType,
                                                                           NSError* error = nullptr);

    /// Cancels what still runs.
    ~AVAssetWriter();
    AVAssetWriter(const AVAssetWriter&) = delete;
    AVAssetWriter& operator=(const AVAssetWriter&) = delete;

    const NSURL& outputURL() const;

    /// Whether the index stands before the media, set before the writer starts; behind it, as at first, nothing has to
    /// make room for it.
    bool shouldOptimizeForNetworkUse() const { return shouldOptimizeForNetworkUse_.get(); }
    void setShouldOptimizeForNetworkUse(bool value) { shouldOptimizeForNetworkUse_.set(value); }
    /// Kept as data: the file grows in its place, so there are no temporary files to put anywhere.
    std::optional<NSURL> directoryForTemporaryFiles() const { return directoryForTemporaryFiles_.get(); }
    void setDirectoryForTemporaryFiles(std::optional<NSURL> url) { directoryForTemporaryFiles_.set(std::move(url)); }

    /// The movie tells the title among these, by its common key. When it was made it tells anyway.
    AVMetadataItemList metadata() const { return metadata_.get(); }
    void setMetadata(AVMetadataItemList metadata) { metadata_.set(std::move(metadata)); }

    /// How many frames are coded at once, set before the writer starts; 0, as at first: as many as there are
    /// processors, at most 8. The pictures are the same with any number.
    void setEncoderCount(size_t count) { encoderCount_.set(count); }

    /// One input of pictures, before `startWriting`.
    bool canAddInput(const AVAssetWriterInput& input) const;
    void addInput(std::shared_ptr<AVAssetWriterInput> input);

    /// Makes the file and the encoders.
    /// @return false, with the status failed and the reason logged, if one cannot be made: an unknown codec, a size
    ///         that the codec cannot have, a folder that cannot be written, a file that is there already
    bool startWriting();

    /// Samples keep their distance to `startTime`, which becomes the movie's start.
    void startSessionAtSourceTime(CMTime startTime);

    /// Finishes the input and completes the file without waiting: the status stays writing until the file is whole.
    /// `handler` then runs once, on another thread, whatever the end.
    void finishWritingWithCompletionHandler(std::function<void()> handler);

    /// Stops the encoders, deletes the file and waits until that is done; the status is then cancelled. Does nothing
    /// after the writer has completed or failed.
    void cancelWriting();

    AVAssetWriterStatus status() const;
    /// Why the status is failed.
    std::optional<NSError> error() const;

    /// Waits while the status is writing, at most `seconds`; an end wakes it at once.
    /// @return the status
    AVAssetWriterStatus waitWhileWriting(double seconds) const;

private:
    explicit AVAssetWriter(NSURL url);

    const std::shared_ptr<AVAssetWriterSession> session_;

    AtomicProperty<bool> shouldOptimizeForNetworkUse_;
    AtomicProperty<std::optional<NSURL>> directoryForTemporaryFiles_;
    AtomicProperty<size_t> encoderCount_;
    AtomicProperty<AVMetadataItemList> metadata_;
    AtomicProperty<std::shared_ptr<AVAssetWriterInput>> input_;
};

} // namespace platform
