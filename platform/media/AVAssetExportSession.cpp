#include "platform/media/AVAssetExportSession.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/Lock.h"
#include "platform/media/PassthroughExport.h"
#include "platform/media/SoundPlanning.h"
#include "platform/sound/SoundExport.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <utility>

namespace platform {

struct AVAssetExportSession::State {
    // Set before the start, read after it.
    AVAssetPtr asset;
    std::string presetName;
    std::string fileType;
    std::optional<CMTimeRange> timeRange;
    std::optional<AVMutableAudioMix> audioMix;
    std::optional<NSURL> temporaryFolder;
    bool optimizesForNetwork = false;
    AVMetadataItemList metadata;
    std::function<NSURL(const NSURL&)> nextFreeURL;

    std::atomic<bool> cancelled{false};
    std::atomic<float> progress{0};

    mutable Lock lock;
    mutable Condition ended;
    AVAssetExportSessionStatus status GUARDED_BY(lock) = AVAssetExportSessionStatus::Unknown;
    std::optional<NSError> error GUARDED_BY(lock);
    std::optional<NSURL> outputURL GUARDED_BY(lock);

    std::optional<NSURL> output() const
    {
        const LockGuard guard(lock);
        return outputURL;
    }

    void end(AVAssetExportSessionStatus how, std::optional<NSError> why)
    {
        const LockGuard guard(lock);
        status = how;
        error = std::move(why);
        ended.notify_all();
    }

    bool hasEnded() const REQUIRES(lock) { return status >= AVAssetExportSessionStatus::Completed; }

    bool mayStart(NSError* why) const;
    bool write(const NSURL& url, NSError* why);
    bool giveName(const NSURL& hidden, NSError* why);
    bool writeAndName(NSError* why);
    void run();
};

namespace {

bool failFileExists(NSError* error, const NSURL& url)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorFileAlreadyExists,
                localized("{} exists already", {url.path()}));
}

/// Removes a file that did not become what it should.
class Unfinished final {
public:
    explicit Unfinished(NSURL url) : url_(std::move(url)) {}
    ~Unfinished() { (void)NSFileManager::defaultManager().removeItemAtURL(url_); }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

private:
    const NSURL url_;
};

} // namespace

bool AVAssetExportSession::State::mayStart(NSError* why) const
{
    const auto url = output();
    if (!asset)
        return fail(why, kAVFoundationErrorDomain, kAVErrorExportFailed, localized("There is no asset to export"));
    if (!url)
        return fail(why, kAVFoundationErrorDomain, kAVErrorExportFailed, localized("There is no place to export to"));
    const bool isSound = fileType == kAVFileTypeAppleM4A;
    const bool isKnown = presetName == kAVAssetExportPresetAppleM4A ? isSound
                                                                    : presetName == kAVAssetExportPresetPassthrough &&
                                                                          (isSound || fileType == kAVFileTypeMPEG4);
    if (!isKnown)
        return fail(why, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset,
                    localized("{} cannot be made as a file of type \"{}\"", {url->path(), fileType}));
    if (!nextFreeURL && NSFileManager::defaultManager().fileExistsAtPath(url->path()))
        return failFileExists(why, *url);
    return true;
}

bool AVAssetExportSession::State::write(const NSURL& url, NSError* why)
{
    const ExportControl control{
        .isCancelled = [this] { return cancelled.load(); },
        .setProgress =
            [this](double part) {
                // Whole only once the file has its name.
                const float limited = std::min(static_cast<float>(part), 0.99F);
                if (limited > progress.load())
                    progress = limited;
            },
    };
    if (fileType == kAVFileTypeMPEG4)
        return copyMovie(*asset, timeRange, url, optimizesForNetwork, metadata, control, why);
    const auto plan = planSound(*asset, timeRange, audioMix ? &*audioMix : nullptr, why);
    if (!plan)
        return false;
    return presetName == kAVAssetExportPresetPassthrough ? copySoundToM4A(*plan, url, control, why)
                                                         : exportSoundToM4A(*plan, url, control, why);
}

bool AVAssetExportSession::State::giveName(const NSURL& hidden, NSError* why)
{
    NSURL url = *output();
    NSError failure;
    const auto next = [this](const NSURL& taken) { return nextFreeURL && !cancelled ? nextFreeURL(taken) : taken; };
    if (!NSFileManager::defaultManager().moveItemToFreeURL(hidden, &url, next, &failure)) {
        if (failure.code == kNSFileWriteFileExistsError)
            return failFileExists(why, url);
        if (why)
            *why = failure;
        return false;
    }
    const LockGuard guard(lock);
    outputURL = url;
    return true;
}

bool AVAssetExportSession::State::writeAndName(NSError* why)
{
    // Not made from the output's name, which may be as long as a name can be.
    const NSURL folder = temporaryFolder ? *temporaryFolder : output()->URLByDeletingLastPathComponent();
    const NSURL hidden = folder.URLByAppendingPathComponent(".exporting-" + NSUUIDString(), false);
    const Unfinished unfinished(hidden);
    return write(hidden, why) && !cancelled && giveName(hidden, why);
}

void AVAssetExportSession::State::run()
{
    NSError why;
    bool isDone = writeAndName(&why);
    if (isDone && cancelled) {
        // It got its name in the moment of the cancel.
        (void)NSFileManager::defaultManager().removeItemAtURL(*output());
        isDone = false;
    }
    if (isDone) {
        progress = 1;
        return end(AVAssetExportSessionStatus::Completed, std::nullopt);
    }
    if (cancelled)
        return end(AVAssetExportSessionStatus::Cancelled, std::nullopt);
    if (why.domain.empty())
        fail(&why, kAVFoundationErrorDomain, kAVErrorExportFailed,
             localized("{} could not be exported", {output()->path()}));
    end(AVAssetExportSessionStatus::Failed, why);
}

AVAssetExportSession::AVAssetExportSession(AVAssetPtr asset, std::string presetName) : state_(std::make_shared<State>())
{
    state_->asset = std::move(asset);
    state_->presetName = std::move(presetName);
}

AVAssetExportSession::~AVAssetExportSession() = default;

void AVAssetExportSession::setOutputFileType(std::string_view type)
{
    state_->fileType = type;
}

void AVAssetExportSession::setOutputURL(NSURL url)
{
    const LockGuard guard(state_->lock);
    state_->outputURL = std::move(url);
}

void AVAssetExportSession::setTimeRange(CMTimeRange range)
{
    state_->timeRange = range;
}

void AVAssetExportSession::setAudioMix(AVMutableAudioMix mix)
{
    state_->audioMix = std::move(mix);
}

void AVAssetExportSession::setDirectoryForTemporaryFiles(NSURL folder)
{
    state_->temporaryFolder = std::move(folder);
}

void AVAssetExportSession::setMetadata(AVMetadataItemList metadata)
{
    state_->metadata = std::move(metadata);
}

void AVAssetExportSession::setShouldOptimizeForNetworkUse(bool shouldOptimize)
{
    state_->optimizesForNetwork = shouldOptimize;
}

void AVAssetExportSession::setOutputURLWhenTaken(std::function<NSURL(const NSURL& taken)> nextFreeURL)
{
    state_->nextFreeURL = std::move(nextFreeURL);
}

void AVAssetExportSession::exportAsynchronouslyWithCompletionHandler(std::move_only_function<void()> handler)
{
    NSError why;
    const bool mayStart = state_->mayStart(&why);
    if (mayStart) {
        const LockGuard guard(state_->lock);
        state_->status = AVAssetExportSessionStatus::Exporting;
    } else {
        state_->end(AVAssetExportSessionStatus::Failed, why);
    }
    DispatchQueue::global()->async([state = state_, mayStart, handler = std::move(handler)]() mutable {
        if (mayStart)
            state->run();
        if (handler)
            handler();
    });
}

AVAssetExportSessionStatus AVAssetExportSession::status() const
{
    const LockGuard guard(state_->lock);
    return state_->status;
}

float AVAssetExportSession::progress() const
{
    return state_->progress;
}

std::optional<NSError> AVAssetExportSession::error() const
{
    const LockGuard guard(state_->lock);
    return state_->error;
}

std::optional<NSURL> AVAssetExportSession::outputURL() const
{
    return state_->output();
}

void AVAssetExportSession::cancelExport()
{
    state_->cancelled = true;
    if (status() == AVAssetExportSessionStatus::Exporting) {
        while (!waitForEnd(60)) {
        }
    }
}

bool AVAssetExportSession::waitForEnd(double seconds) const
{
    const auto deadline =
        std::chrono::steady_clock::now() +
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
    const LockGuard guard(state_->lock);
    while (!state_->hasEnded()) {
        if (state_->ended.wait_until(state_->lock, deadline) == std::cv_status::timeout)
            return state_->hasEnded();
    }
    return true;
}

} // namespace platform
