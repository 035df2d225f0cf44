#pragma once

#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/NSXPCConnection.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/media/AVURLAsset.h"
#include "platform/system/IOPMAssertion.h"
#include "video/VideoStageContext.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Runs the jobs of one connection, and holds what their stages share. Held by a shared_ptr. Any thread. What it runs
/// and asks outside itself is virtual, so that its own rules can be driven without photos, sound or a login manager.
///
/// Once cancelled it stays so: later requests are answered as cancelled.
class morStilloraVideoCreator : public morStilloraVideoCreatorProtocol,
                                public VideoStageContext,
                                public std::enable_shared_from_this<morStilloraVideoCreator> {
public:
    morStilloraVideoCreator();
    /// Waits for the operations that its queues still run, which use it; those that wait are dropped.
    ~morStilloraVideoCreator() override;

    /// How many frames are made at once on a machine of so many processors.
    static int frameOperationCountForProcessors(uint64_t processorCount);

    /// Requests of all creators that have not been answered yet.
    static size_t unansweredRequests();

    /// Returns at once: the job runs on the global queue and answers once, on the main queue.
    void createStillMotionVideoWithPhotos(PhotoList photos, SoundtrackList soundtracks, double totalVideoDuration,
                                          double totalSoundtrackDuration, bool shouldLoopSoundtrack,
                                          double durationPerPhoto, const std::optional<std::string>& desiredCodec,
                                          int64_t quality, bool shouldReduceBorders,
                                          const platform::NSData& documentURL, const platform::NSData& saveURL,
                                          const platform::NSData& temporaryURL, Reply reply) override;

    /// Only sets the flag, which the running job and its stages look at, and allows automatic termination.
    void cancelCreation() override;

    /// @name Stages; each blocks its caller but for the last.
    /// @{
    [[nodiscard]] virtual platform::AVURLAssetPtr finishedSoundtrackWithSoundtracks(const SoundtrackList& soundtracks,
                                                                                    double totalVideoDuration,
                                                                                    double totalSoundtrackDuration,
                                                                                    bool shouldLoopSoundtrack,
                                                                                    platform::NSError* error = nullptr);
    [[nodiscard]] virtual platform::AVURLAssetPtr videoWithPhotos(const PhotoList& photos, int64_t quality,
                                                                  bool reduceBorders, double durationPerPhoto,
                                                                  const std::optional<std::string>& desiredCodec,
                                                                  platform::NSError* error = nullptr);
    [[nodiscard]] virtual platform::AVURLAssetPtr
    movieByCombiningVideo(const platform::AVURLAssetPtr& video, const platform::AVURLAssetPtr& withSoundtrack,
                          const std::optional<platform::NSURL>& forFinalDocURL, platform::NSError* error = nullptr);
    virtual platform::NSURL _URLForFinalVideoAtDocumentURL(const std::optional<platform::NSURL>& documentURL);
    /// @}

    /// Removes the asset's file if its path contains the text of the temporary folder's URL; does nothing for null.
    /// A path does not contain a URL's scheme, so files of an ordinary temporary folder stay: that is wanted.
    void _deleteAsset(const platform::AVURLAssetPtr& asset);
    void _setAutomaticTerminationEnabled(bool isEnabled);

    /// @name Properties
    /// @{
    bool isCancelled() const override { return isCancelled_; }
    void setIsCancelled(bool isCancelled) override { isCancelled_ = isCancelled; }
    /// The connection that owns this creator; null while there is none.
    platform::NSXPCConnectionPtr xpcConnection() const { return xpcConnection_.get(); }
    void setXpcConnection(platform::NSXPCConnectionPtr connection) { xpcConnection_.set(std::move(connection)); }
    platform::NSURL destinationURL() const override { return destinationURL_.get(); }
    void setDestinationURL(platform::NSURL url) { destinationURL_.set(std::move(url)); }
    platform::NSURL temporaryURL() const override { return temporaryURL_.get(); }
    void setTemporaryURL(platform::NSURL url) { temporaryURL_.set(std::move(url)); }
    std::optional<platform::NSURL> documentURL() const override { return documentURL_.get(); }
    void setDocumentURL(std::optional<platform::NSURL> url) { documentURL_.set(std::move(url)); }
    /// For the frames that are made from now on.
    bool drawsWatermark() const override { return drawsWatermark_; }
    void setDrawsWatermark(bool drawsWatermark) { drawsWatermark_ = drawsWatermark; }
    /// All three as the process was told when it was started; before the first request.
    std::optional<MoviePart> part() const override { return part_; }
    void setPart(std::optional<MoviePart> part) { part_ = part; }
    std::vector<platform::NSURL> pieces() const override { return pieces_; }
    void setPieces(std::vector<platform::NSURL> pieces) { pieces_ = std::move(pieces); }
    std::optional<FrameSource> frameSource() const override { return frameSource_; }
    void setFrameSource(std::optional<FrameSource> source) { frameSource_ = std::move(source); }
    platform::NSOperationQueue& fbQ() override { return fbQ_; }
    platform::NSOperationQueue& bufferCreationQ() override { return bufferCreationQ_; }
    uint64_t currentNeededPhotoIndex() const override { return currentNeededPhotoIndex_; }
    void setCurrentNeededPhotoIndex(uint64_t index) override { currentNeededPhotoIndex_ = index; }
    std::shared_ptr<FrameList> imageBuffers() const override { return imageBuffers_.get(); }
    void setImageBuffers(std::shared_ptr<FrameList> frames) override { imageBuffers_.set(std::move(frames)); }
    /// @}

    void updateProgress(const ProgressUpdate& update) override;

protected:
    /// Where a request's folders are taken from if they cannot be found.
    virtual platform::NSURL customSaveDirectory() const;
    virtual platform::NSURL temporarySaveDirectory() const;

    /// Hold off idle sleep.
    virtual platform::IOReturn createAssertion(const std::string& name, platform::IOPMAssertionID* assertionID) const;
    virtual void releaseAssertion(platform::IOPMAssertionID assertionID) const;

private:
    struct Job;
    enum class WayOut;

    void run(const std::shared_ptr<Job>& job);
    /// Runs the stages until one fails, the flag is set, or the movie is there.
    WayOut makeMovie(Job& job);
    void releaseAssertionOf(const Job& job) const;
    platform::AVURLAssetPtr movieByMovingVideo(const platform::AVURLAssetPtr& video,
                                               const std::optional<platform::NSURL>& documentURL);

    std::atomic<bool> isCancelled_{false};
    std::atomic<bool> drawsWatermark_{true};
    std::optional<MoviePart> part_;
    std::vector<platform::NSURL> pieces_;
    std::optional<FrameSource> frameSource_;
    std::atomic<uint64_t> currentNeededPhotoIndex_{0};
    platform::AtomicProperty<platform::NSXPCConnectionPtr> xpcConnection_;
    platform::AtomicProperty<platform::NSURL> destinationURL_;
    platform::AtomicProperty<platform::NSURL> temporaryURL_;
    platform::AtomicProperty<std::optional<platform::NSURL>> documentURL_;
    platform::AtomicProperty<std::shared_ptr<FrameList>> imageBuffers_;

    platform::NSOperationQueue fbQ_;
    platform::NSOperationQueue bufferCreationQ_;
};
