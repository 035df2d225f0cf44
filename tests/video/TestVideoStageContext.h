#pragma once

#include "tests/support/TemporaryFolder.h"
#include "video/VideoStageContext.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

/// What a creator would share with its stages, without a connection. Updates are kept.
class TestVideoStageContext final : public VideoStageContext {
public:
    explicit TestVideoStageContext(int concurrentFrames = 2) : destination_(folder_.url()), temporary_(folder_.url())
    {
        fbQ_.setMaxConcurrentOperationCount(1);
        bufferCreationQ_.setMaxConcurrentOperationCount(concurrentFrames);
    }
    TestVideoStageContext(platform::NSURL destination, platform::NSURL temporary)
        : destination_(std::move(destination)), temporary_(std::move(temporary))
    {
        fbQ_.setMaxConcurrentOperationCount(1);
    }
    ~TestVideoStageContext() override { finish(); }

    bool isCancelled() const override
    {
        if (whenAskedForCancelled)
            whenAskedForCancelled();
        return isCancelled_;
    }
    void setIsCancelled(bool isCancelled) override { isCancelled_ = isCancelled; }
    platform::NSURL destinationURL() const override { return destination_; }
    platform::NSURL temporaryURL() const override { return temporary_; }
    std::optional<platform::NSURL> documentURL() const override { return documentURL_; }
    void setDocumentURL(platform::NSURL url) { documentURL_ = std::move(url); }
    bool drawsWatermark() const override { return drawsWatermark_; }
    void setDrawsWatermark(bool drawsWatermark) { drawsWatermark_ = drawsWatermark; }
    std::optional<MoviePart> part() const override { return part_; }
    void setPart(MoviePart part) { part_ = part; }
    std::vector<platform::NSURL> pieces() const override { return pieces_; }
    void setPieces(std::vector<platform::NSURL> pieces) { pieces_ = std::move(pieces); }
    std::optional<FrameSource> frameSource() const override { return frameSource_; }
    void setFrameSource(FrameSource source) { frameSource_ = std::move(source); }
    platform::NSOperationQueue& fbQ() override { return fbQ_; }
    void updateProgress(const ProgressUpdate& update) override
    {
        const std::lock_guard guard(mutex_);
        updates_.push_back(update);
    }
    platform::NSOperationQueue& bufferCreationQ() override { return bufferCreationQ_; }
    uint64_t currentNeededPhotoIndex() const override { return currentNeededPhotoIndex_; }
    void setCurrentNeededPhotoIndex(uint64_t index) override { currentNeededPhotoIndex_ = index; }
    std::shared_ptr<FrameList> imageBuffers() const override
    {
        const std::lock_guard guard(mutex_);
        return imageBuffers_;
    }
    void setImageBuffers(std::shared_ptr<FrameList> frames) override
    {
        const std::lock_guard guard(mutex_);
        imageBuffers_ = std::move(frames);
    }

    platform::CGSize videoSizeForQuality(int64_t quality, const PhotoList& photos, uint64_t* totalFileSize,
                                         PhotoList* failedPhotos) override
    {
        return videoSize ? videoSize(photos, totalFileSize, failedPhotos)
                         : VideoStageContext::videoSizeForQuality(quality, photos, totalFileSize, failedPhotos);
    }
    void _fillBufferArrayUsingPhotos(const PhotoList& photos, platform::CGSize maxVidSize, bool reduceBorders) override
    {
        if (fillBufferArray)
            fillBufferArray(*this, photos, maxVidSize);
        else
            VideoStageContext::_fillBufferArrayUsingPhotos(photos, maxVidSize, reduceBorders);
    }

    /// Waits until all frames and updates are through.
    void finish()
    {
        bufferCreationQ_.waitUntilAllOperationsAreFinished();
        fbQ_.waitUntilAllOperationsAreFinished();
    }
    std::vector<ProgressUpdate> updates() const
    {
        const std::lock_guard guard(mutex_);
        return updates_;
    }
    const TemporaryFolder& folder() const { return folder_; }

    /// Called before each answer; set before the first.
    std::function<void()> whenAskedForCancelled;
    /// In place of the stages of these names.
    std::function<platform::CGSize(const PhotoList& photos, uint64_t* totalFileSize, PhotoList* failedPhotos)>
        videoSize;
    std::function<void(VideoStageContext& context, const PhotoList& photos, platform::CGSize size)> fillBufferArray;

private:
    const TemporaryFolder folder_;
    const platform::NSURL destination_;
    const platform::NSURL temporary_;
    std::optional<platform::NSURL> documentURL_;
    std::atomic<bool> isCancelled_{false};
    std::atomic<bool> drawsWatermark_{true};
    std::optional<MoviePart> part_;
    std::vector<platform::NSURL> pieces_;
    std::optional<FrameSource> frameSource_;
    std::atomic<uint64_t> currentNeededPhotoIndex_{0};
    mutable std::mutex mutex_;
    std::vector<ProgressUpdate> updates_;
    std::shared_ptr<FrameList> imageBuffers_;
    platform::NSOperationQueue fbQ_;
    platform::NSOperationQueue bufferCreationQ_;
};
