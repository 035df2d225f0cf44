#pragma once

#include "items/MORPhoto.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/writer/AVAssetWriterInputPixelBufferAdaptor.h"
#include "util/StageContext.h"
#include "video/FrameList.h"
#include "video/ReusedFrames.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

/// Some frames of a movie, made by themselves.
struct MoviePart {
    /// Where the first of them stands in the movie; even.
    size_t first = 0;
    /// Frames of the whole movie.
    size_t movieCount = 0;
};

/// What the video stages of one creator share besides.
class VideoStageContext : public StageContext {
public:
    /// The document that the movie is of, which gives it its title; nothing without one.
    virtual std::optional<platform::NSURL> documentURL() const = 0;

    /// Whether the frames that are to carry the watermark get it.
    virtual bool drawsWatermark() const { return true; }

    /// Which frames of a larger movie a request's are; nothing where they are all of it.
    virtual std::optional<MoviePart> part() const { return std::nullopt; }

    /// Movies that together hold the coded frames of a request, in their order; empty where its frames are made here.
    virtual std::vector<platform::NSURL> pieces() const { return {}; }

    /// Where some of a request's frames have been made before; nothing where all are made here.
    virtual std::optional<FrameSource> frameSource() const { return std::nullopt; }

    /// The queue that renders frames.
    virtual platform::NSOperationQueue& bufferCreationQ() = 0;

    /// The photo that the writer needs next.
    virtual uint64_t currentNeededPhotoIndex() const = 0;
    virtual void setCurrentNeededPhotoIndex(uint64_t index) = 0;

    /// The finished frames; null between jobs.
    virtual std::shared_ptr<FrameList> imageBuffers() const = 0;
    virtual void setImageBuffers(std::shared_ptr<FrameList> frames) = 0;

    /// Where the frames will be appended; null while there is no writer. Any thread.
    std::shared_ptr<platform::AVAssetWriterInputPixelBufferAdaptor> pixelBufferAdaptor() const
    {
        return pixelBufferAdaptor_.get();
    }
    void setPixelBufferAdaptor(std::shared_ptr<platform::AVAssetWriterInputPixelBufferAdaptor> adaptor)
    {
        pixelBufferAdaptor_.set(std::move(adaptor));
    }

    /// The frames that are copied, and none made of; null where there are none. Any thread.
    std::shared_ptr<ReusedFrames> reusedFrames() const { return reusedFrames_.get(); }
    void setReusedFrames(std::shared_ptr<ReusedFrames> frames) { reusedFrames_.set(std::move(frames)); }

    /// `VideoSize::videoSizeForQuality`.
    virtual platform::CGSize videoSizeForQuality(int64_t quality, const PhotoList& photos,
                                                 uint64_t* totalFileSize = nullptr, PhotoList* failedPhotos = nullptr);
    /// `fillBufferArray`.
    virtual void _fillBufferArrayUsingPhotos(const PhotoList& photos, platform::CGSize maxVidSize, bool reduceBorders);

private:
    platform::AtomicProperty<std::shared_ptr<platform::AVAssetWriterInputPixelBufferAdaptor>> pixelBufferAdaptor_;
    platform::AtomicProperty<std::shared_ptr<ReusedFrames>> reusedFrames_;
};
