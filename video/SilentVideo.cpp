#include "video/SilentVideo.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/system/NSProcessInfo.h"
#include "platform/system/NSWorkspace.h"
#include "platform/writer/AVAssetWriter.h"
#include "platform/writer/AVAssetWriterInputPixelBufferAdaptor.h"
#include "video/FrameProduction.h"
#include "video/MovieTitle.h"
#include "video/PieceJoining.h"
#include "video/VideoSize.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <utility>

using platform::AVAssetWriter;
using platform::AVAssetWriterInput;
using platform::AVAssetWriterInputPixelBufferAdaptor;
using platform::AVAssetWriterStatus;
using platform::CGSize;
using platform::DispatchQueue;
using platform::NSError;
using platform::NSURL;

namespace {

constexpr const char* kOperation = "-[morStilloraVideoCreator "
                                   "videoWithPhotos:quality:reduceBorders:durationPerPhoto:desiredCodec:error:]";

/// The longest waits between two looks; what is waited for ends them at once.
constexpr double kStatusPollSeconds = 0.5;
constexpr double kFramePollSeconds = 0.01;

/// In seconds since the reference date.
double now()
{
    return platform::NSDate::date().timeIntervalSinceReferenceDate;
}

platform::CMTime timeOfFrame(uint64_t index, double durationPerPhoto)
{
    return platform::CMTimeMakeWithSeconds(durationPerPhoto * static_cast<double>(index), kPictureTimescale);
}

/// Waits a little for another frame.
void waitForFrame(const std::shared_ptr<FrameList>& frames, uint64_t& seen, double seconds)
{
    if (frames)
        seen = frames->waitForAppend(seen, seconds);
    else
        std::this_thread::yield();
}

/// No way out but the frames: too few photos are waited for until the process ends.
void waitForFirstFrames(const VideoStageContext& context)
{
    const auto reused = context.reusedFrames();
    const size_t copied = reused ? reused->count() : 0;
    uint64_t seen = 0;
    while (true) {
        const auto frames = context.imageBuffers();
        if (frames && frames->count() + copied >= kFramesBeforeWriting)
            return;
        waitForFrame(frames, seen, kStatusPollSeconds);
    }
}

void reportRendering(StageContext& context, uint64_t index, uint64_t photoCount, platform::NSImagePtr icon,
                     double secondsLeft)
{
    const auto progress = static_cast<double>(index + 1);
    const auto total = static_cast<double>(photoCount);
    context.queueProgress(
        [&context, icon = std::move(icon), progress, total, secondsLeft]() mutable -> std::optional<ProgressUpdate> {
            if (context.isCancelled())
                return std::nullopt;
            context.fbQ().cancelAllOperations();
            return ProgressUpdate{.title = "VideoCreationTitleRenderingVideo",
                                  .image = std::exchange(icon, nullptr),
                                  .determinate = true,
                                  .progress = progress,
                                  .total = total,
                                  .timeInterval = secondsLeft};
        });
}

void reportWriting(StageContext& context)
{
    context.queueProgress([]() -> std::optional<ProgressUpdate> {
        return ProgressUpdate{.title = "VideoCreationTitleWritingVideo",
                              .image = platform::NSWorkspace::sharedWorkspace().iconForFileType("mov"),
                              .timeInterval = ProgressUpdate::kNoEstimate};
    });
}

/// Feeds the writer with frames in photo order. The writing queue calls it as the input asks; it touches the context
/// only until it is closed.
class FrameFeeder final {
public:
    FrameFeeder(VideoStageContext& context, std::shared_ptr<AVAssetWriter> writer,
                std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor, const PhotoList& photos,
                double durationPerPhoto, RemainingTimeEstimate estimate)
        : context_(context), writer_(std::move(writer)), input_(adaptor->assetWriterInput()),
          adaptor_(std::move(adaptor)), photos_(photos), reused_(context.reusedFrames()),
          durationPerPhoto_(durationPerPhoto), estimate_(estimate), startTime_(now())
    {}

    /// What the input's block does.
    void feed()
    {
        platform::assertOnQueue(*videoWritingQueue());
        platform::LockGuard guard(lock_);
        if (isClosed_ || !input_->isReadyForMoreMediaData())
            return;
        uint64_t seen = 0;
        while (feedNextFrame(seen)) {
        }
    }

    /// Waits until a running `feed` has returned; later ones do nothing.
    void close()
    {
        platform::LockGuard guard(lock_);
        isClosed_ = true;
    }

    /// In seconds since the reference date.
    double startTime() const { return startTime_; }

private:
    /// @return whether to go on with the next pass
    bool feedNextFrame(uint64_t& seen) REQUIRES(lock_)
    {
        const uint64_t index = context_.currentNeededPhotoIndex();
        const auto frames = context_.imageBuffers();
        const bool isCopied = reused_ && reused_->contains(index);
        const bool isThere = isCopied || (frames && frames->contains(index));
        if (context_.isCancelled()) {
            abandon();
            return false;
        }
        if (!isThere) {
            if (!input_->isReadyForMoreMediaData())
                return false;
            waitForFrame(frames, seen, kFramePollSeconds);
            return true;
        }
        if (!(isCopied ? copyFrame(index) : appendFrame(*frames, index))) {
            abandon();
            return false;
        }
        if (index + 1 == photos_.size()) {
            reportWriting(context_);
            input_->markAsFinished();
            writer_->finishWritingWithCompletionHandler([] {});
            return false;
        }
        context_.setCurrentNeededPhotoIndex(index + 1);
        return input_->isReadyForMoreMediaData();
    }

    bool appendFrame(FrameList& frames, uint64_t index) REQUIRES(lock_)
    {
        auto record = frames.take(index);
        // The writer alone keeps the buffer now.
        if (!record || !adaptor_->appendPixelBuffer(std::move(record->buffer), timeOfFrame(index, durationPerPhoto_)))
            return false;
        report(index, std::move(record->icon), record->readBytes);
        return true;
    }

    bool copyFrame(uint64_t index) REQUIRES(lock_)
    {
        NSError error;
        auto packet = reused_->packet(index, &error);
        if (!packet)
            platform::logFailure(kOperation, error.localizedDescription);
        if (!packet || !input_->appendPacket(std::move(*packet), timeOfFrame(index, durationPerPhoto_)))
            return false;
        report(index, nullptr, photos_[index]->fileSize());
        return true;
    }

    void report(uint64_t index, platform::NSImagePtr icon, int64_t readBytes) REQUIRES(lock_)
    {
        reportRendering(context_, index, photos_.size(), std::move(icon),
                        estimate_.secondsLeftAfter(index, readBytes, now() - startTime_));
    }

    void abandon()
    {
        input_->markAsFinished();
        writer_->cancelWriting();
        (void)platform::NSFileManager::defaultManager().removeItemAtURL(writer_->outputURL());
    }

    VideoStageContext& context_;
    const std::shared_ptr<AVAssetWriter> writer_;
    const std::shared_ptr<AVAssetWriterInput> input_;
    const std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor_;
    const PhotoList photos_;
    const std::shared_ptr<ReusedFrames> reused_;
    const double durationPerPhoto_;

    /// Held while feeding.
    platform::Lock lock_;
    RemainingTimeEstimate estimate_ GUARDED_BY(lock_);
    bool isClosed_ GUARDED_BY(lock_) = false;
    const double startTime_;
};

void waitForEnd(const AVAssetWriter& writer)
{
    AVAssetWriterStatus status = writer.status();
    while (status == AVAssetWriterStatus::Writing)
        status = writer.waitWhileWriting(kStatusPollSeconds);
}

/// Of a writer that has come to its end.
/// @return the movie; null, with the context cancelled, where there is none
platform::AVURLAssetPtr finishedVideo(VideoStageContext& context, const AVAssetWriter& writer, double startTime,
                                      NSError* error)
{
    if (writer.status() == AVAssetWriterStatus::Completed) {
        platform::NSLog("*!!* raw video file creation took " + platform::stringWithSixDecimals(now() - startTime) +
                        " seconds");
        return platform::AVURLAsset::URLAssetWithURL(writer.outputURL());
    }
    // Cancelled, or failed: the writer has logged why, and the client is told that the job was cancelled.
    if (error && writer.error())
        *error = {};
    context.setIsCancelled(true);
    return nullptr;
}

/// Removes a video again whose header does not fit the frames that were copied to it.
/// @param source  the movie that these are of
/// @param video   null where there is none
/// @return the video; null, with the context cancelled, where it does not fit
platform::AVURLAssetPtr withHeaderOf(const NSURL& source, platform::AVURLAssetPtr video, VideoStageContext& context)
{
    NSError reason;
    if (!video || hasHeaderOfPiece(video->URL(), source, &reason))
        return video;
    platform::logFailure(kOperation, reason.localizedDescription);
    (void)platform::NSFileManager::defaultManager().removeItemAtURL(video->URL());
    context.setIsCancelled(true);
    return nullptr;
}

/// The picture track of pieces that others have made, with the times and the header that it would have had here.
platform::AVURLAssetPtr joinedVideo(VideoStageContext& context, AVAssetWriter& writer, AVAssetWriterInput& input,
                                    const std::vector<NSURL>& pieces, const PhotoList& photos, double durationPerPhoto,
                                    RemainingTimeEstimate estimate, NSError* error)
{
    const double startTime = now();
    const auto timeOf = [&](uint64_t index) { return timeOfFrame(index, durationPerPhoto); };
    const auto appended = [&](uint64_t index) {
        reportRendering(context, index, photos.size(), nullptr,
                        estimate.secondsLeftAfter(index, photos[index]->fileSize(), now() - startTime));
    };
    NSError reason;
    if (!appendPieces(context, input, pieces, photos.size(), timeOf, appended, &reason)) {
        if (reason != NSError())
            platform::logFailure(kOperation, reason.localizedDescription);
        writer.cancelWriting();
    } else {
        reportWriting(context);
        input.markAsFinished();
        writer.finishWritingWithCompletionHandler([] {});
    }
    waitForEnd(writer);
    return withHeaderOf(pieces.front(), finishedVideo(context, writer, startTime, error), context);
}

/// The frames that need not be made; null where all are.
std::shared_ptr<ReusedFrames> framesToReuse(const VideoStageContext& context, size_t count)
{
    auto source = context.frameSource();
    if (!source)
        return nullptr;
    NSError reason;
    auto frames = ReusedFrames::open(std::move(*source), count, &reason);
    if (!frames)
        platform::logFailure(kOperation, reason.localizedDescription);
    return frames;
}

PhotoList without(PhotoList photos, const PhotoList& failedPhotos)
{
    std::erase_if(photos, [&](const MORPhotoPtr& photo) { return std::ranges::count(failedPhotos, photo) > 0; });
    return photos;
}

std::shared_ptr<AVAssetWriter> makeWriter(const VideoStageContext& context, NSError* error)
{
    const auto& files = platform::NSFileManager::defaultManager();
    const NSURL folder = context.temporaryURL().URLByAppendingPathComponent(platform::NSUUIDString(), true);
    NSError reason;
    if (!files.createDirectoryAtURL(folder, true, &reason)) {
        platform::logFailure(kOperation, "could not create temporary dir");
        if (error)
            *error = reason;
        return nullptr;
    }
    auto writer = AVAssetWriter::assetWriterWithURL(folder.URLByAppendingPathComponent("videoWithoutSound.mov", false),
                                                    platform::kAVFileTypeQuickTimeMovie, &reason);
    if (!writer) {
        platform::logFailure(kOperation, "could not create assetWriter");
        if (error)
            *error = reason;
        return nullptr;
    }
    writer->setShouldOptimizeForNetworkUse(true);
    writer->setDirectoryForTemporaryFiles(context.temporaryURL());
    // Without a soundtrack this becomes the finished movie.
    writer->setMetadata(metadataOfMovie(context.documentURL()));
    return writer;
}

} // namespace

platform::AVURLAssetPtr videoWithPhotos(VideoStageContext& context, const PhotoList& photos, int64_t quality,
                                        bool reduceBorders, double durationPerPhoto,
                                        const std::optional<std::string>& desiredCodec, NSError* error,
                                        uint64_t processorCount)
{
    if (photos.empty())
        return nullptr;
    uint64_t totalFileSize = 0;
    PhotoList failedPhotos;
    const CGSize size = context.videoSizeForQuality(quality, photos, &totalFileSize, &failedPhotos);
    if (size == platform::kNSZeroSize)
        return nullptr;

    const auto writer = makeWriter(context, error);
    if (!writer)
        return nullptr;
    if (processorCount == 0)
        processorCount = platform::NSProcessInfo::processInfo().processorCount();
    const PhotoList photosToWrite = without(photos, failedPhotos);
    const auto input = std::make_shared<AVAssetWriterInput>(
        platform::kAVMediaTypeVideo,
        platform::AVVideoSettings{.codec = desiredCodec.value_or(std::string(platform::kAVVideoCodecJPEG)),
                                  .width = size.width,
                                  .height = size.height,
                                  .scalingMode = std::string(platform::kAVVideoScalingModeResizeAspect)});
    input->setExpectsMediaDataInRealTime(false);
    input->setMaximumSampleCount(photosToWrite.size());
    // Places are counted without those that failed.
    const auto reused = failedPhotos.empty() ? framesToReuse(context, photosToWrite.size()) : nullptr;
    context.setReusedFrames(reused);
    writer->addInput(input);
    // The operations that render frames code them as well; for these they leave a quarter of the processors free.
    writer->setEncoderCount(std::max<uint64_t>(1, processorCount / 4));
    // A writer that cannot start has failed; the poll below sees it.
    (void)writer->startWriting();
    writer->startSessionAtSourceTime(platform::kCMTimeZero);

    const RemainingTimeEstimate estimate(processorCount, photosToWrite.size(), totalFileSize);
    if (const auto pieces = context.pieces(); !pieces.empty())
        return joinedVideo(context, *writer, *input, pieces, photosToWrite, durationPerPhoto, estimate, error);
    const auto adaptor = std::make_shared<AVAssetWriterInputPixelBufferAdaptor>(input);
    context.setPixelBufferAdaptor(adaptor);
    context.setCurrentNeededPhotoIndex(0);
    context._fillBufferArrayUsingPhotos(photosToWrite, size, reduceBorders);
    waitForFirstFrames(context);

    context.fbQ().cancelAllOperations();
    const auto feeder =
        std::make_shared<FrameFeeder>(context, writer, adaptor, photosToWrite, durationPerPhoto, estimate);
    input->requestMediaDataWhenReadyOnQueue(videoWritingQueue(), [feeder] { feeder->feed(); });

    waitForEnd(*writer);
    feeder->close();
    context.setImageBuffers(nullptr);
    context.setPixelBufferAdaptor(nullptr);
    context.setReusedFrames(nullptr);
    auto video = finishedVideo(context, *writer, feeder->startTime(), error);
    return reused ? withHeaderOf(reused->source().movie, std::move(video), context) : video;
}

const std::shared_ptr<DispatchQueue>& videoWritingQueue()
{
    // Never destroyed: a writer may still be fed while the process ends.
    static const auto& queue = *new std::shared_ptr<DispatchQueue>(
        DispatchQueue::create("app.stillora.VideoCreator.VideoCreationQueue",
                              {.kind = DispatchQueue::Kind::Serial,
                               .autoreleaseFrequency = DispatchQueue::AutoreleaseFrequency::WorkItem,
                               .qosClass = platform::QOSClass::UserInitiated,
                               .relativePriority = -1}));
    return queue;
}

RemainingTimeEstimate::RemainingTimeEstimate(uint64_t processorCount, uint64_t photoCount, uint64_t totalFileSize)
    : processorCount_(processorCount), photoCount_(photoCount), totalFileSize_(totalFileSize)
{}

double RemainingTimeEstimate::secondsLeftAfter(uint64_t index, int64_t readBytes, double elapsedSeconds)
{
    bytesRead_ += readBytes;
    if (bytesRead_ < 2 || index + 1 < processorCount_ + 2)
        return kUnknown;
    const auto total = static_cast<double>(totalFileSize_);
    const double bytesPerSecond = static_cast<double>(bytesRead_) / elapsedSeconds;
    // Every fifth of the way the whole is estimated anew.
    const uint64_t fifth = photoCount_ / 5;
    if ((fifth > 0 && index % fifth == 0) || estimatedTotalSeconds_ < 1)
        estimatedTotalSeconds_ = total / bytesPerSecond;
    double remaining = estimatedTotalSeconds_ - elapsedSeconds;
    if (remaining < 0) {
        remaining = (total - static_cast<double>(bytesRead_)) / bytesPerSecond;
        estimatedTotalSeconds_ = 0;
    }
    return remaining;
}
