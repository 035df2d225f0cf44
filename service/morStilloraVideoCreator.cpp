#include "service/morStilloraVideoCreator.h"

#include "audio/SoundtrackAssembly.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/system/NSProcessInfo.h"
#include "util/MORPalvineCommons.h"
#include "video/FinalMovie.h"
#include "video/SilentVideo.h"

#include <malloc.h>
#include <utility>

using platform::AVURLAsset;
using platform::AVURLAssetPtr;
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

/// Between two stages: what the threads of one have freed lies in arenas of theirs, where those of the next, and the
/// libraries' large tables, find little that fits.
void giveBackFreedMemory()
{
    malloc_trim(0);
}

} // namespace

/// One request: what its job needs, what it has made so far, and its one answer.
struct morStilloraVideoCreator::Job {
    Job() { ++unanswered; }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job() { --unanswered; }

    /// On the main queue; uses the reply up.
    void answer(std::optional<NSData> movieBookmark, std::optional<NSError> why, bool isCancelled)
    {
        std::exchange(reply, nullptr)(std::move(movieBookmark), std::move(why), isCancelled);
    }

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
    /// Seconds since the reference date.
    double startTime = 0;

    AVURLAssetPtr soundtrack;
    AVURLAssetPtr video;
    AVURLAssetPtr movie;
    /// The last stage's.
    NSError error;
};

/// How a job ends.
///
/// |          | idle sleep                 | files made so far | automatic termination | answer                  |
/// |----------|----------------------------|-------------------|-----------------------|-------------------------|
/// | Stopped  | let go, then               | deleted           | as it was             | stage's error, the flag |
/// | Unjoined | held                       | deleted           | as it was             | nothing, no flag        |
/// | Made     | let go just before answer  | stay              | allowed               | the movie, no flag      |
enum class morStilloraVideoCreator::WayOut {
    /// Cancelled, or the sound or the pictures could not be made.
    Stopped,
    /// Sound and pictures could not be joined.
    Unjoined,
    Made,
};

morStilloraVideoCreator::morStilloraVideoCreator()
    : destinationURL_(NSURL::fileURLWithPath("/", true)), temporaryURL_(NSURL::fileURLWithPath("/", true))
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
        DispatchQueue::main()->async(
            [self = shared_from_this(), job] { job->answer(std::nullopt, std::nullopt, self->isCancelled()); });
        return;
    }
    const auto save = NSURL::URLByResolvingBookmarkData(saveURL);
    const auto temporary = NSURL::URLByResolvingBookmarkData(temporaryURL);
    job->documentURL = NSURL::URLByResolvingBookmarkData(documentURL);
    setDocumentURL(job->documentURL);
    setDestinationURL(save ? *save : customSaveDirectory());
    setTemporaryURL(temporary ? *temporary : temporarySaveDirectory());

    job->assertionStatus =
        createAssertion(platform::NSBundle::mainBundle().localizedStringForKey("VideoCreationIOPMAssertionSleepNotice"),
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
    job->startTime = NSDate::date().timeIntervalSinceReferenceDate;
    const WayOut way = makeMovie(*job);
    if (way == WayOut::Stopped)
        releaseAssertionOf(*job);
    if (way != WayOut::Made)
        for (const auto& asset : {job->soundtrack, job->video, job->movie})
            _deleteAsset(asset);
    DispatchQueue::main()->async([self = shared_from_this(), job, way] {
        switch (way) {
        case WayOut::Stopped:
            job->answer(std::nullopt, errorOrNone(job->error), self->isCancelled());
            break;
        case WayOut::Unjoined:
            job->answer(std::nullopt, std::nullopt, false);
            break;
        case WayOut::Made:
            self->releaseAssertionOf(*job);
            self->_setAutomaticTerminationEnabled(true);
            platform::NSLog(
                "*!!* creation took " +
                platform::stringWithSixDecimals(NSDate::date().timeIntervalSinceReferenceDate - job->startTime) +
                " seconds");
            // A movie that could not be moved is not looked for: the location is named all the same.
            const auto bookmark = job->movie->URL().bookmarkData();
            job->answer(bookmark ? *bookmark : job->movie->URL().bookmarkDataOfPathAlone(), std::nullopt, false);
            break;
        }
    });
}

morStilloraVideoCreator::WayOut morStilloraVideoCreator::makeMovie(Job& job)
{
    if (isCancelled())
        return WayOut::Stopped;
    if (!job.soundtracks.empty()) {
        job.soundtrack = finishedSoundtrackWithSoundtracks(
            job.soundtracks, job.totalVideoDuration, job.totalSoundtrackDuration, job.shouldLoopSoundtrack, &job.error);
        if (!job.soundtrack)
            return WayOut::Stopped;
        giveBackFreedMemory();
    }
    job.error = {};
    if (isCancelled())
        return WayOut::Stopped;

    job.video = videoWithPhotos(job.photos, job.quality, job.shouldReduceBorders, job.durationPerPhoto,
                                job.desiredCodec, &job.error);
    if (!job.video || isCancelled())
        return WayOut::Stopped;
    giveBackFreedMemory();

    job.error = {};
    job.movie = job.soundtrack ? movieByCombiningVideo(job.video, job.soundtrack, job.documentURL, &job.error)
                               : movieByMovingVideo(job.video, job.documentURL);
    if (isCancelled())
        return WayOut::Stopped;
    return job.movie ? WayOut::Made : WayOut::Unjoined;
}

AVURLAssetPtr morStilloraVideoCreator::movieByMovingVideo(const AVURLAssetPtr& video,
                                                          const std::optional<NSURL>& documentURL)
{
    auto movieURL = _URLForFinalVideoAtDocumentURL(documentURL);
    NSError error;
    // The reply names the location all the same, so the log alone says why nothing is there.
    if (!NSFileManager::defaultManager().moveItemToFreeURL(
            video->URL(), &movieURL, [&](const NSURL&) { return _URLForFinalVideoAtDocumentURL(documentURL); }, &error))
        platform::logFailure("morStilloraVideoCreator moveItemAtURL:toURL:error:", error.localizedDescription);
    return AVURLAsset::URLAssetWithURL(movieURL);
}

void morStilloraVideoCreator::releaseAssertionOf(const Job& job) const
{
    // Non-zero means that there is no assertion. One that was made so lasts until the process ends, which is wanted.
    if (job.assertionStatus != platform::kIOReturnSuccess)
        releaseAssertion(job.assertionID);
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
    return ::finishedSoundtrackWithSoundtracks(*this, soundtracks, totalVideoDuration, totalSoundtrackDuration,
                                               shouldLoopSoundtrack, error);
}

AVURLAssetPtr morStilloraVideoCreator::videoWithPhotos(const PhotoList& photos, int64_t quality, bool reduceBorders,
                                                       double durationPerPhoto,
                                                       const std::optional<std::string>& desiredCodec, NSError* error)
{
    return ::videoWithPhotos(*this, photos, quality, reduceBorders, durationPerPhoto, desiredCodec, error);
}

AVURLAssetPtr morStilloraVideoCreator::movieByCombiningVideo(const AVURLAssetPtr& video,
                                                             const AVURLAssetPtr& withSoundtrack,
                                                             const std::optional<NSURL>& forFinalDocURL, NSError* error)
{
    return ::movieByCombiningVideo(*this, video, withSoundtrack, forFinalDocURL, error);
}

NSURL morStilloraVideoCreator::_URLForFinalVideoAtDocumentURL(const std::optional<NSURL>& documentURL)
{
    return ::URLForFinalVideoAtDocumentURL(*this, documentURL);
}

NSURL morStilloraVideoCreator::customSaveDirectory() const
{
    return MORPalvineCommons::customSaveDirectory();
}

NSURL morStilloraVideoCreator::temporarySaveDirectory() const
{
    return MORPalvineCommons::temporarySaveDirectory();
}

platform::IOReturn morStilloraVideoCreator::createAssertion(const std::string& name,
                                                            platform::IOPMAssertionID* assertionID) const
{
    return platform::IOPMAssertionCreateWithName(platform::kIOPMAssertPreventUserIdleSystemSleep,
                                                 platform::kIOPMAssertionLevelOn, name, assertionID);
}

void morStilloraVideoCreator::releaseAssertion(platform::IOPMAssertionID assertionID) const
{
    platform::IOPMAssertionRelease(assertionID);
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
