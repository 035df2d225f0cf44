#include "service/morStilloraVideoCreator.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/system/NSProcessInfo.h"

#include <utility>

using platform::AVURLAsset;
using platform::AVURLAssetPtr;
using platform::CGSize;
using platform::DispatchQueue;
using platform::NSData;
using platform::NSDate;
using platform::NSError;
using platform::NSFileManager;
using platform::NSProcessInfo;
using platform::NSURL;

namespace {

/// Encoding comes first: frames that are finished before they can be written only take up memory.
constexpr int kFrameNiceness = 5;

std::atomic<size_t> unanswered{0};

std::shared_ptr<DispatchQueue> underlyingQueue(std::string_view suffix, platform::QOSClass qosClass, int niceness)
{
    return DispatchQueue::create(std::string(kServiceIdentifier) + "." + std::string(suffix),
                                 {.kind = DispatchQueue::Kind::Concurrent,
                                  .autoreleaseFrequency = DispatchQueue::AutoreleaseFrequency::WorkItem,
                                  .qosClass = qosClass,
                                  .relativePriority = -1,
                                  .niceness = niceness});
}

/// An error that nobody wrote is none.
std::optional<NSError> errorOrNone(const NSError& error)
{
    return error == NSError() ? std::nullopt : std::optional(error);
}

} // namespace

/// One request: what its job needs, and its one answer.
struct morStilloraVideoCreator::Job {
    Job() { ++unanswered; }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job() { --unanswered; }

    Reply reply;
    SoundtrackList soundtracks;
    PhotoList photos;
    std::optional<std::string> desiredCodec;
    std::optional<NSURL> documentURL;
    double totalVideoDuration = 0;
    double totalSoundtrackDuration = 0;
    int64_t quality = 0;
    double durationPerPhoto = 0;
    bool shouldLoopSoundtrack = false;
    bool shouldReduceBorders = false;
    platform::IOReturn assertionStatus = platform::kIOReturnSuccess;
    platform::IOPMAssertionID assertionID = platform::kIOPMNullAssertionID;
};

morStilloraVideoCreator::morStilloraVideoCreator(VideoCreatorStages stages)
    : stages_(std::move(stages)), destinationURL_(NSURL::fileURLWithPath("/", true)),
      temporaryURL_(NSURL::fileURLWithPath("/", true))
{
    fbQ_.setUnderlyingQueue(underlyingQueue("ProgressFeedbackUnderlyingQueue", platform::QOSClass::Default, 0));
    fbQ_.setMaxConcurrentOperationCount(1);
    fbQ_.setQualityOfService(platform::NSQualityOfService::Utility);

    bufferCreationQ_.setQualityOfService(platform::NSQualityOfService::UserInitiated);
    bufferCreationQ_.setUnderlyingQueue(
        underlyingQueue("ImageCreationUnderlyingQueue", platform::QOSClass::UserInteractive, kFrameNiceness));
    bufferCreationQ_.setMaxConcurrentOperationCount(
        frameOperationCountForProcessors(NSProcessInfo::processInfo().processorCount()));
    if (bufferCreationQ_.maxConcurrentOperationCount() < 1)
        bufferCreationQ_.setMaxConcurrentOperationCount(1);

    setImageBuffers(std::make_shared<FrameList>());
}

morStilloraVideoCreator::~morStilloraVideoCreator()
{
    for (auto* queue : {&fbQ_, &bufferCreationQ_}) {
        queue->cancelAllOperations();
        queue->waitUntilAllOperationsAreFinished();
    }
}

int morStilloraVideoCreator::frameOperationCountForProcessors(uint64_t processorCount)
{
    const int count = static_cast<int>(processorCount - processorCount / 4);
    // -1 would mean as many as the system likes.
    return count == platform::NSOperationQueue::kDefaultMaxConcurrentOperationCount ? 1 : count;
}

size_t morStilloraVideoCreator::unansweredRequests()
{
    return unanswered;
}

void morStilloraVideoCreator::createStillMotionVideoWithPhotos(
    PhotoList photos, SoundtrackList soundtracks, double totalVideoDuration, double totalSoundtrackDuration,
    bool shouldLoopSoundtrack, double durationPerPhoto, const std::optional<std::string>& desiredCodec, int64_t quality,
    bool shouldReduceBorders, const NSData& documentURL, const NSData& saveURL, const NSData& temporaryURL, Reply reply)
{
    const auto job = std::make_shared<Job>();
    job->reply = std::move(reply);
    if (photos.empty()) {
        answer(job, {});
        return;
    }
    const auto save = NSURL::URLByResolvingBookmarkData(saveURL);
    const auto temporary = NSURL::URLByResolvingBookmarkData(temporaryURL);
    job->documentURL = NSURL::URLByResolvingBookmarkData(documentURL);
    setDocumentURL(job->documentURL);
    setDestinationURL(save ? *save : stages_.customSaveDirectory());
    setTemporaryURL(temporary ? *temporary : stages_.temporarySaveDirectory());

    job->assertionStatus = stages_.createAssertion(
        platform::NSBundle::mainBundle().localizedStringForKey("VideoCreationIOPMAssertionSleepNotice"),
        &job->assertionID);

    job->soundtracks = std::move(soundtracks);
    job->photos = std::move(photos);
    job->desiredCodec = desiredCodec;
    job->totalVideoDuration = totalVideoDuration;
    job->totalSoundtrackDuration = totalSoundtrackDuration;
    job->quality = quality;
    job->durationPerPhoto = durationPerPhoto;
    job->shouldLoopSoundtrack = shouldLoopSoundtrack;
    job->shouldReduceBorders = shouldReduceBorders;
    DispatchQueue::global()->async([self = shared_from_this(), job] { self->run(job); });
}

void morStilloraVideoCreator::run(const std::shared_ptr<Job>& job)
{
    const double startTime = NSDate::date().timeIntervalSinceReferenceDate;
    if (isCancelled()) {
        releaseAssertion(*job);
        answer(job, {});
        return;
    }

    AVURLAssetPtr soundtrack;
    if (!job->soundtracks.empty()) {
        NSError soundtrackError;
        soundtrack =
            finishedSoundtrackWithSoundtracks(job->soundtracks, job->totalVideoDuration, job->totalSoundtrackDuration,
                                              job->shouldLoopSoundtrack, &soundtrackError);
        if (!soundtrack) {
            releaseAssertion(*job);
            answer(job, soundtrackError);
            return;
        }
    }
    if (isCancelled()) {
        releaseAssertion(*job);
        _deleteAsset(soundtrack);
        answer(job, {});
        return;
    }

    NSError videoError;
    const auto video = videoWithPhotos(job->photos, job->quality, job->shouldReduceBorders, job->durationPerPhoto,
                                       job->desiredCodec, &videoError);
    if (!video || isCancelled()) {
        releaseAssertion(*job);
        _deleteAsset(soundtrack);
        _deleteAsset(video);
        answer(job, videoError);
        return;
    }

    NSError compositionError;
    const auto movie = soundtrack ? movieByCombiningVideo(video, soundtrack, job->documentURL, &compositionError)
                                  : movieByMovingVideo(video, job->documentURL);
    if (isCancelled()) {
        releaseAssertion(*job);
        _deleteAsset(soundtrack);
        _deleteAsset(video);
        _deleteAsset(movie);
        answer(job, compositionError);
        return;
    }

    if (!movie) {
        _deleteAsset(soundtrack);
        _deleteAsset(video);
        _deleteAsset(nullptr);
        // Neither the error nor the flag is passed on here, and the assertion stays.
        DispatchQueue::main()->async([job] { job->reply(std::nullopt, std::nullopt, false); });
        return;
    }
    DispatchQueue::main()->async([self = shared_from_this(), job, movie, startTime] {
        self->releaseAssertion(*job);
        self->_setAutomaticTerminationEnabled(true);
        platform::NSLog("*!!* creation took " +
                        platform::stringWithSixDecimals(NSDate::date().timeIntervalSinceReferenceDate - startTime) +
                        " seconds");
        // A movie that could not be moved is not looked for: the location is named all the same.
        const auto bookmark = movie->URL().bookmarkData();
        job->reply(bookmark ? *bookmark : movie->URL().bookmarkDataOfPathAlone(), std::nullopt, false);
    });
}

AVURLAssetPtr morStilloraVideoCreator::movieByMovingVideo(const AVURLAssetPtr& video,
                                                          const std::optional<NSURL>& documentURL)
{
    auto movieURL = _URLForFinalVideoAtDocumentURL(documentURL);
    for (;;) {
        NSError error;
        if (NSFileManager::defaultManager().moveItemAtURL(video->URL(), movieURL, &error))
            break;
        if (error.code == platform::kNSFileWriteFileExistsError) {
            // Somebody took the free name meanwhile. If the same one still counts as free, none will do.
            auto nextURL = _URLForFinalVideoAtDocumentURL(documentURL);
            if (!(nextURL == movieURL)) {
                movieURL = std::move(nextURL);
                continue;
            }
        }
        // The reply names the location all the same, so the log alone says why nothing is there.
        platform::logFailure("morStilloraVideoCreator moveItemAtURL:toURL:error:", error.localizedDescription);
        break;
    }
    return AVURLAsset::URLAssetWithURL(movieURL);
}

void morStilloraVideoCreator::answer(const std::shared_ptr<Job>& job, const NSError& error)
{
    DispatchQueue::main()->async(
        [self = shared_from_this(), job, error] { job->reply(std::nullopt, errorOrNone(error), self->isCancelled()); });
}

void morStilloraVideoCreator::releaseAssertion(const Job& job) const
{
    // Non-zero means that there is no assertion. One that was made so lasts until the process ends, which is wanted.
    if (job.assertionStatus != platform::kIOReturnSuccess)
        stages_.releaseAssertion(job.assertionID);
}

void morStilloraVideoCreator::cancelCreation()
{
    setIsCancelled(true);
    _setAutomaticTerminationEnabled(true);
}

AVURLAssetPtr morStilloraVideoCreator::finishedSoundtrackWithSoundtracks(const SoundtrackList& soundtracks,
                                                                         double totalVideoDuration,
                                                                         double totalSoundtrackDuration,
                                                                         bool shouldLoopSoundtrack, NSError* error)
{
    return stages_.finishedSoundtrack(*this, soundtracks, totalVideoDuration, totalSoundtrackDuration,
                                      shouldLoopSoundtrack, error);
}

AVURLAssetPtr morStilloraVideoCreator::videoWithPhotos(const PhotoList& photos, int64_t quality, bool reduceBorders,
                                                       double durationPerPhoto,
                                                       const std::optional<std::string>& desiredCodec, NSError* error)
{
    return stages_.silentVideo(*this, photos, quality, reduceBorders, durationPerPhoto, desiredCodec, error);
}

CGSize morStilloraVideoCreator::videoSizeForQuality(int64_t quality, const PhotoList& photos, uint64_t* totalFileSize,
                                                    PhotoList* failedPhotos)
{
    return stages_.videoSize(*this, quality, photos, totalFileSize, failedPhotos);
}

AVURLAssetPtr morStilloraVideoCreator::movieByCombiningVideo(const AVURLAssetPtr& video,
                                                             const AVURLAssetPtr& withSoundtrack,
                                                             const std::optional<NSURL>& forFinalDocURL, NSError* error)
{
    return stages_.movieByCombining(*this, video, withSoundtrack, forFinalDocURL, error);
}

void morStilloraVideoCreator::_fillBufferArrayUsingPhotos(const PhotoList& photos, CGSize maxVidSize,
                                                          bool reduceBorders)
{
    stages_.fillBufferArray(*this, photos, maxVidSize, reduceBorders);
}

NSURL morStilloraVideoCreator::_URLForFinalVideoAtDocumentURL(const std::optional<NSURL>& documentURL)
{
    return stages_.finalVideoURL(*this, documentURL);
}

void morStilloraVideoCreator::_deleteAsset(const AVURLAssetPtr& asset)
{
    if (asset && asset->URL().path().find(temporaryURL().absoluteString()) != std::string::npos)
        (void)NSFileManager::defaultManager().removeItemAtURL(asset->URL());
}

void morStilloraVideoCreator::_setAutomaticTerminationEnabled(bool isEnabled)
{
    // Made anew each time: a closed connection may call this while the process ends.
    const std::string reason = "creating assets for Stillora";
    auto& process = NSProcessInfo::processInfo();
    process.setAutomaticTerminationSupportEnabled(isEnabled);
    if (isEnabled)
        process.enableSuddenTermination();
    else
        process.disableSuddenTermination();
    if (isEnabled)
        process.enableAutomaticTermination(reason);
    else
        process.disableAutomaticTermination(reason);
}

void morStilloraVideoCreator::updateProgress(const ProgressUpdate& update)
{
    const auto connection = xpcConnection();
    if (!connection)
        return;
    ProgressReceiverProxy(connection->remoteObjectProxy())
        .updateProgressWithTitle(update.title, update.image ? update.image->pngData() : std::nullopt,
                                 update.determinate, update.progress, update.total, update.timeInterval);
}
