#include <stillora/Movie.h>
#include <stillora/Photos.h>

#include "client/files/FreeName.h"
#include "client/files/JobFolder.h"
#include "client/forecast/MachinePace.h"
#include "client/forecast/MovieTimetable.h"
#include "client/forecast/RemainingTime.h"
#include "client/movie/FrameMemory.h"
#include "client/processes/WakeUp.h"
#include "client/processes/WorkingClock.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/service/ServiceConnection.h"
#include "client/service/ServiceProcess.h"
#include "client/service/WatermarkChoice.h"
#include "client/sounds/SilentSound.h"
#include "client/text/ClientError.h"
#include "client/text/DataBytes.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSString.h"
#include "util/MORURLCategory.h"
#include "video/FrameFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <map>
#include <string_view>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace stillora {

namespace {

using Clock = WorkingClock;
using std::chrono::milliseconds;

/// Between two looks at the clock, and two turns of a display.
constexpr milliseconds kTick{150};

/// How often the job's folder is measured, at the rarest.
constexpr milliseconds kMeasureInterval{2'000};

/// How often the time left is told anew while the service says nothing.
constexpr milliseconds kTellInterval{500};

/// How often sound that is converted is measured: it is written in a few large pieces, and it counts when.
constexpr milliseconds kSoundInterval{50};

constexpr std::string_view kConversionStage = "VideoCreationTitleConvertingAndTrimmingAssets";
constexpr std::string_view kSizeStage = "VideoCreationTitleCalculatingVideoSize";
constexpr std::string_view kRenderingStage = "VideoCreationTitleRenderingVideo";

/// A rate that every player knows and that is quick to encode: a movie without music needs no more.
constexpr int kSilenceRateHz = 16000;

/// How long the system may refuse to wait for anything.
constexpr milliseconds kLongestBlindness{2'000};

/// How long a service that has answered may take to end by itself.
constexpr milliseconds kGoodbye{2'000};

/// For the web no picture lasts longer. A browser that is told of none for longer may show the next one early; so seen
/// with pictures of a second and more, never with those of half a second.
constexpr Seconds kLongestWebPicture{0.5};

/// With less free space than this after a failure, the disk counts as full.
constexpr double kFullDiskBytes = 4e6;

/// The same of files: a movie takes some in its making.
constexpr double kFullDiskFiles = 4;

/// With less before the start, no movie is begun.
constexpr double kLeastFreeBytes = 1e6;

/// How much more a disk takes.
struct FreeSpace {
    double bytes = std::numeric_limits<double>::max();
    /// Disks that know no such number never run out of it.
    double files = std::numeric_limits<double>::max();
};

FreeSpace freeSpace(const std::string& folder)
{
    FreeSpace space;
    struct statvfs status = {};
    if (statvfs(folder.c_str(), &status) != 0)
        return space;
    space.bytes = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
    if (status.f_files > 0)
        space.files = static_cast<double>(status.f_favail);
    return space;
}

/// What the connection's queue hands over to the thread that makes the movie. Outlives both.
struct Mailbox {
    struct Answer {
        std::optional<platform::NSData> movie;
        std::optional<platform::NSError> error;
        bool isCancelled = false;
    };

    explicit Mailbox(std::shared_ptr<const WakeUp> descriptor) : wakeUp(std::move(descriptor)) {}

    const std::shared_ptr<const WakeUp> wakeUp;

    platform::Lock lock;
    std::optional<MovieProgress> progress GUARDED_BY(lock);
    std::optional<Answer> answer GUARDED_BY(lock);
};

/// The service tells of rendering when some frames are there, which may take seconds; the size is chosen by then.
MovieProgress withRenderingAfterSize(MovieProgress progress)
{
    if (progress.stage == kSizeStage && progress.progress >= progress.total) {
        progress.stage = kRenderingStage;
        progress.progress = 0;
    }
    return progress;
}

/// Which file there is under a path: another one where it was replaced.
struct FileNumber {
    dev_t device = 0;
    ino_t number = 0;

    bool operator==(const FileNumber&) const = default;

    /// Nothing where there is none.
    static std::optional<FileNumber> of(const std::filesystem::path& path)
    {
        struct stat status = {};
        return stat(path.c_str(), &status) == 0 ? std::optional(FileNumber{status.st_dev, status.st_ino})
                                                : std::nullopt;
    }
};

class ProgressReceiver final : public morStilloraXPCCreatorUpdateProtocol {
public:
    explicit ProgressReceiver(std::shared_ptr<Mailbox> mailbox) : mailbox_(std::move(mailbox)) {}

    void updateProgressWithTitle(const std::string& title, const std::optional<platform::NSData>& image,
                                 bool determinate, double progress, double total, double /*timeInterval*/) override
    {
        // The service's own estimate is of the rendering alone, by the bytes of the photos.
        MovieProgress update{title, {}, determinate, progress, total, std::nullopt};
        if (image)
            update.image = bytesOf(*image);
        {
            const platform::LockGuard guard(mailbox_->lock);
            mailbox_->progress = std::move(update);
        }
        mailbox_->wakeUp->wake();
    }

private:
    const std::shared_ptr<Mailbox> mailbox_;
};

/// What the service takes for a quality: a height of its table, or 0 for its own rule.
int64_t qualityForService(const MovieRequest& request)
{
    constexpr int64_t kRuleOfSmallest = 0;
    const auto height = static_cast<int64_t>(frameSizeForQuality(request.quality, request.photos).height);
    return request.quality == kAutomaticQuality || request.quality == height ? height : kRuleOfSmallest;
}

bool isEndOfConnection(const platform::NSError& error)
{
    return error.domain == platform::kNSCocoaErrorDomain && error.code == platform::kNSXPCConnectionInvalid;
}

} // namespace

/// One run of `makeMovie`.
class STILLORA_HIDDEN MovieMaker::Job final {
public:
    /// @param source  frames that need not be made
    Job(MovieMaker& maker, const MovieRequest& request, Observer& observer,
        std::optional<FrameSource> source = std::nullopt)
        : maker_(maker), request_(request), frameSource_(std::move(source)),
          saveFolder_(platform::NSURL::fileURLWithPath(request.saveFolder.native(), true)), observer_(observer),
          mailbox_(std::make_shared<Mailbox>(maker.wakeUp_)),
          timetable_(
              timetableOf(request, std::thread::hardware_concurrency(), frameSource_ ? &*frameSource_ : nullptr)),
          remainingTime_(timetable_, machinePace_.known())
    {}

    Result<Movie> run();

    bool reusesFrames() const { return frameSource_.has_value(); }
    /// Whether its pictures stand in it more often than once.
    bool isRepeated() const { return isRepeated_; }

private:
    enum class Ending { Answered, Cancelled, Stalled, FrameMissing, ProcessEnded, Blind };

    bool prepare();
    ServiceProcess::Rights rightsOfService();
    std::vector<std::string> argumentsOfService() const;
    bool connect();
    bool send();
    Ending watch();
    bool deliverProgress();
    bool isHeardOf(std::string_view stage) const;
    void tell(MovieProgress progress);
    void watchSound();
    void tellAgain();
    bool isSilentForTooLong(Clock::time_point now);
    Result<Movie> finish(Ending ending);
    Result<Movie> takeMovie(const platform::NSURL& made);
    MovieQuestion questionAbout(const platform::NSURL& made) const;
    std::optional<platform::NSURL> locationOfSound(const PlannedSound& piece);
    void noteFreeSpace();
    void explainFailure(const Mailbox::Answer& answer);
    Error reasonOfMissingFrame();
    void learnPace() const;
    void endService();

    Error failed() const
    {
        Error error = errorOf(error_);
        if (error.code == ErrorCode::DiskFull || error.code == ErrorCode::NoPermission)
            error.file = request_.saveFolder;
        return error;
    }
    static Error cancelled() { return {ErrorCode::Cancelled, {}, localized("stopped")}; }

    MovieMaker& maker_;
    const MovieRequest& request_;
    const std::optional<FrameSource> frameSource_;
    const platform::NSURL saveFolder_;
    Observer& observer_;
    const std::shared_ptr<Mailbox> mailbox_;

    platform::NSError error_;
    // In the order of making; the process ends before its folder is removed.
    std::unique_ptr<JobFolder> folder_;
    std::unique_ptr<ServiceProcess> service_;
    platform::NSXPCConnectionPtr connection_;
    std::optional<Mailbox::Answer> answer_;
    /// The photos' files when the service was given the right to read these and no others.
    std::vector<std::optional<FileNumber>> photosAtStart_;
    /// The address of a photo that gives no frame, or an empty text where it is not the photo's fault.
    std::optional<std::string> missingFrame_;

    std::optional<platform::NSURL> silence_;
    /// The locations that a file goes by, one for each part of it.
    std::map<std::string, std::vector<std::pair<SoundFacts::Selection, platform::NSURL>>> locationsOfSounds_;

    bool isRepeated_ = false;

    const Clock::time_point start_ = Clock::now();
    const MachinePace machinePace_ = MachinePace::ofUser();
    const MovieTimetable timetable_;
    RemainingTime remainingTime_;
    bool isConverting_ = false;
    /// What is told again, with a newer estimate, while the service says nothing.
    std::optional<MovieProgress> told_;
    Clock::time_point lastTold_;
    Clock::time_point soundMeasured_;
    uint64_t sizeBeforeSound_ = 0;

    Clock::time_point lastSignOfLife_;
    Clock::time_point lastMeasured_;
    uint64_t measuredSize_ = 0;
    FreeSpace leastFree_;
};

MovieMaker::MovieMaker() : MovieMaker(Limits{}) {}

MovieMaker::MovieMaker(Limits limits) : limits_(limits), wakeUp_(std::make_shared<const WakeUp>()) {}

MovieMaker::~MovieMaker() = default;

void MovieMaker::cancel() noexcept
{
    ++cancelRequests_;
    wakeUp_->wake();
}

Result<Movie> MovieMaker::makeMovie(const MovieRequest& request, Observer& observer)
{
    const auto program = ServiceProcess::findProgram();
    if (!request.reusesFrames || request.part || !request.pieces.empty() || !program || isCancelled())
        return Job(*this, request, observer).run();
    const FrameMemory memory = FrameMemory::ofUser();
    FrameKeys keys(request, *program);
    auto job = std::make_unique<Job>(*this, request, observer, memory.find(keys.keys()));
    Result<Movie> movie = job->run();
    // The other movie may have changed meanwhile, or been made by another version of an encoder.
    if (!movie && movie.error().code == ErrorCode::ServiceFailed && job->reusesFrames()) {
        job = std::make_unique<Job>(*this, request, observer);
        movie = job->run();
    }
    if (movie && movie->faults.empty() && !job->isRepeated()) {
        keys.forgetChangedPhotos();
        memory.remember(movie->path, keys.keys());
    }
    return movie;
}

Result<Movie> MovieMaker::Job::run()
{
    if (maker_.isCancelled())
        return cancelled();
    platform::NSXPCConnection::startThreads();
    if (!prepare() || !connect() || !send()) {
        endService();
        return maker_.isCancelled() ? cancelled() : failed();
    }
    return finish(watch());
}

bool MovieMaker::Job::prepare()
{
    folder_ = JobFolder::create(saveFolder_, &error_);
    if (!folder_)
        return false;
    const double free = freeSpace(saveFolder_.path()).bytes;
    if (free < kLeastFreeBytes)
        return fail(
            &error_, ErrorCode::DiskFull,
            localized("the disk of the save folder {} is full: only {} are left", saveFolder_.path(), bytesText(free)));
    return true;
}

/// It works in the job's folder alone, from where this process takes what it made.
ServiceProcess::Rights MovieMaker::Job::rightsOfService()
{
    ServiceProcess::Rights rights;
    for (const PhotoFacts& photo : request_.photos) {
        rights.files.readable.push_back(photo.path.native());
        photosAtStart_.push_back(FileNumber::of(photo.path));
    }
    for (const SoundFacts& sound : request_.sounds)
        rights.files.readable.push_back(sound.path.native());
    for (const std::filesystem::path& piece : request_.pieces)
        rights.files.readable.push_back(piece.native());
    if (frameSource_)
        rights.files.readable.push_back(frameSource_->movie.path());
    rights.files.writable.push_back(folder_->path());
    rights.temporaryFolder = folder_->temporaryURL().path();
    return rights;
}

std::vector<std::string> MovieMaker::Job::argumentsOfService() const
{
    std::vector<std::string> arguments{drawsWatermark(request_.watermark) ? "--watermark" : "--no-watermark"};
    if (const auto& part = request_.part) {
        arguments.emplace_back("--part");
        arguments.push_back(fmt::format("{}/{}", part->first, part->movieCount));
    }
    for (const std::filesystem::path& piece : request_.pieces) {
        arguments.emplace_back("--piece");
        arguments.push_back(piece.native());
    }
    if (frameSource_) {
        arguments.emplace_back("--reuse");
        arguments.push_back(argumentOf(*frameSource_));
    }
    return arguments;
}

bool MovieMaker::Job::connect()
{
    const auto program = ServiceProcess::findProgram(&error_);
    if (!program)
        return false;
    service_ = ServiceProcess::start(*program, argumentsOfService(), rightsOfService(), &error_);
    if (!service_)
        return false;
    service_->setLineHandler([this](const std::string& line) {
        if (!missingFrame_)
            missingFrame_ = photoOfFailedFrame(line);
    });
    connection_ = connectionTo(*service_, *program, &error_, [this] { return !maker_.isCancelled(); });
    if (!connection_)
        return false;
    connection_->setRemoteObjectInterface(morStilloraVideoCreatorProtocol::interface());
    connection_->setExportedInterface(morStilloraXPCCreatorUpdateProtocol::interface());
    connection_->setExportedObject(std::make_shared<ProgressReceiver>(mailbox_));
    connection_->resume();
    return true;
}

/// The service converts each location once, with the selection that it meets first, so that another part of a file
/// needs another location.
std::optional<platform::NSURL> MovieMaker::Job::locationOfSound(const PlannedSound& piece)
{
    if (!piece.source) {
        if (!silence_) {
            // As the music before it, so that nothing has to be converted to it.
            const bool hasMusic = !request_.sounds.empty();
            const int rate = hasMusic ? request_.sounds.back().sampleRateHz : 0;
            const std::string path = folder_->pathForFile("silence.wav");
            if (!writeSilence(path, piece.length.count(), rate > 0 ? rate : kSilenceRateHz, hasMusic ? 2 : 1, &error_))
                return std::nullopt;
            silence_ = platform::NSURL::fileURLWithPath(path, false);
        }
        return silence_;
    }
    const std::string& path = request_.sounds[*piece.source].path.native();
    const SoundFacts::Selection part = piece.selection.value_or(SoundFacts::Selection{});
    auto& locations = locationsOfSounds_[path];
    for (const auto& [selection, location] : locations)
        if (selection == part)
            return location;
    auto location = locations.empty() ? std::optional(platform::NSURL::fileURLWithPath(path, false))
                                      : folder_->makeAlias(path, &error_);
    if (location)
        locations.emplace_back(part, *location);
    return location;
}

bool MovieMaker::Job::send()
{
    const MoviePlan& plan = request_.plan;
    PhotoList photos;
    photos.reserve(plan.frameCount(request_.photos.size()));
    for (const PhotoFacts& facts : request_.photos) {
        const auto url = platform::NSURL::fileURLWithPath(facts.path.native(), false);
        const std::string title =
            platform::stringByReplacingInvalidUTF8(platform::stringByDeletingPathExtension(url.lastPathComponent()));
        // Objects of their own: the service counts one that stands twice as the first.
        for (size_t i = 0; i < plan.framesPerPhoto; ++i) {
            auto photo = std::make_shared<MORPhoto>();
            photo->setPhotoURL(url);
            photo->setTitle(title);
            photo->setSize({facts.size.width, facts.size.height});
            photo->setFileSize(facts.fileSize);
            photos.push_back(std::move(photo));
        }
    }

    SoundtrackList sounds;
    for (const PlannedSound& piece : plan.sounds) {
        const auto url = locationOfSound(piece);
        if (!url)
            return false;
        // Zeros mean the whole file, and unlike the marker for it they survive being sent.
        const SoundFacts::Selection part = piece.selection.value_or(SoundFacts::Selection{});
        auto sound = MORSoundtrack::soundtrackWithURL(
            *url, {part.start.count(), part.end.count(), (part.end - part.start).count()});
        sound->set_originalPath(platform::stringByReplacingInvalidUTF8(url->path()));
        sounds.push_back(std::move(sound));
    }

    const auto document = request_.document
                              ? std::optional(platform::NSURL::fileURLWithPath(request_.document->native(), true))
                              : folder_->makeDocument(request_.title, &error_);
    if (!document)
        return false;
    const auto documentURL = document->bookmarkData(platform::BookmarkCreationOptions::None, &error_);
    const auto saveURL = folder_->outputURL().bookmarkData(platform::BookmarkCreationOptions::None, &error_);
    const auto temporaryURL = folder_->temporaryURL().bookmarkData(platform::BookmarkCreationOptions::None, &error_);
    if (!documentURL || !saveURL || !temporaryURL)
        return false;

    VideoCreatorProxy(connection_->remoteObjectProxy())
        .createStillMotionVideoWithPhotos(
            photos, sounds, plan.totalVideoDuration.count(), plan.totalSoundtrackDuration.count(), false,
            plan.timePerFrame.count(), request_.codec, qualityForService(request_), request_.reducesBorders,
            *documentURL, *saveURL, *temporaryURL,
            [mailbox = mailbox_](std::optional<platform::NSData> movie, std::optional<platform::NSError> error,
                                 bool isCancelled) {
                {
                    const platform::LockGuard guard(mailbox->lock);
                    mailbox->answer = Mailbox::Answer{std::move(movie), std::move(error), isCancelled};
                }
                mailbox->wakeUp->wake();
            });
    return true;
}

/// @return whether there was something new
bool MovieMaker::Job::deliverProgress()
{
    std::optional<MovieProgress> progress;
    {
        const platform::LockGuard guard(mailbox_->lock);
        std::swap(progress, mailbox_->progress);
        if (mailbox_->answer)
            answer_ = mailbox_->answer;
    }
    if (!progress)
        return false;
    remainingTime_.progressed(progress->stage, progress->progress, progress->total, Clock::now() - start_);
    isConverting_ = progress->stage == kConversionStage && progress->total == 0;
    if (isHeardOf(progress->stage))
        tell(withRenderingAfterSize(*std::move(progress)));
    return true;
}

/// Stages that do nothing are not told of; nor are those that prepare and join silence, of which nobody asked anything.
bool MovieMaker::Job::isHeardOf(std::string_view stage) const
{
    if (stage == "VideoCreationTitleCalculatingSoundtrackDuration")
        return false;
    return !request_.sounds.empty() ||
           (stage != kConversionStage && stage != "VideoCreationCompositingVideoAndSoundtrack");
}

void MovieMaker::Job::tell(MovieProgress progress)
{
    lastTold_ = Clock::now();
    progress.timeLeft = remainingTime_.left(lastTold_ - start_);
    observer_.progressChanged(progress);
    told_ = std::move(progress);
}

/// The service says nothing while it converts single files, but what it writes grows.
void MovieMaker::Job::watchSound()
{
    const auto now = Clock::now();
    if (!isConverting_ || now - soundMeasured_ < kSoundInterval)
        return;
    soundMeasured_ = now;
    const uint64_t size = folder_->sizeOfContents();
    remainingTime_.soundGrew(static_cast<double>(size - std::min(size, sizeBeforeSound_)), now - start_);
}

/// Large frames take seconds each, and so does music.
void MovieMaker::Job::tellAgain()
{
    if (told_ && Clock::now() - lastTold_ >= (told_->timeLeft ? kTellInterval : kTick))
        tell(*std::exchange(told_, std::nullopt));
}

/// Some stages report nothing for minutes (long music is converted in one go), but their files grow.
bool MovieMaker::Job::isSilentForTooLong(Clock::time_point now)
{
    if (now - lastMeasured_ >= std::min(kMeasureInterval, maker_.limits_.stall / 4)) {
        lastMeasured_ = now;
        const uint64_t size = folder_->sizeOfContents();
        if (std::exchange(measuredSize_, size) != size)
            lastSignOfLife_ = now;
    }
    return now - lastSignOfLife_ >= maker_.limits_.stall;
}

MovieMaker::Job::Ending MovieMaker::Job::watch()
{
    lastSignOfLife_ = lastMeasured_ = Clock::now();
    sizeBeforeSound_ = folder_->sizeOfContents();
    std::optional<Clock::time_point> deadline;
    Ending ending = Ending::Answered;
    bool hasLog = true;
    auto lastWait = Clock::now();
    for (;;) {
        // The answer may have come in the same moment as whatever else is looked at below.
        if (deliverProgress())
            lastSignOfLife_ = Clock::now();
        if (answer_)
            return ending;
        // For this frame the service would wait for ever.
        if (missingFrame_ && !deadline)
            return Ending::FrameMissing;
        watchSound();
        tellAgain();
        const auto now = Clock::now();
        // The service removes what it could not finish, so that later there is room again.
        noteFreeSpace();
        if (!deadline && maker_.isCancelled()) {
            ending = Ending::Cancelled;
        } else if (!deadline && isSilentForTooLong(now)) {
            ending = Ending::Stalled;
        }
        if (!deadline && ending != Ending::Answered) {
            VideoCreatorProxy(connection_->remoteObjectProxy()).cancelCreation();
            deadline = now + maker_.limits_.cancel;
        }
        if (deadline && (now >= *deadline || maker_.cancelRequests_ > 1))
            return ending;
        observer_.timePassed();

        std::array<pollfd, 3> waits{pollfd{mailbox_->wakeUp->descriptor(), POLLIN, 0},
                                    pollfd{service_->endedDescriptor(), POLLIN, 0},
                                    pollfd{hasLog ? service_->logDescriptor() : -1, POLLIN, 0}};
        const milliseconds turn = isConverting_ ? kSoundInterval : kTick;
        if (poll(waits.data(), waits.size(), static_cast<int>(turn.count())) >= 0 || errno == EINTR) {
            lastWait = now;
        } else if (now - lastWait > kLongestBlindness) {
            fail(&error_, ErrorCode::Failed,
                 localized("no movie was made, since the program cannot wait for the rendering service: {}",
                           reasonOfErrno(errno)));
            return Ending::Blind;
        } else {
            std::this_thread::sleep_for(kTick);
        }
        if (waits[0].revents)
            mailbox_->wakeUp->clear();
        if (waits[2].revents)
            hasLog = service_->readLog();
        if (waits[1].revents) {
            // What it said last may still be on its way through the socket.
            const auto patience = Clock::now() + kGoodbye;
            while (!answer_ && Clock::now() < patience) {
                deliverProgress();
                pollfd wait{mailbox_->wakeUp->descriptor(), POLLIN, 0};
                poll(&wait, 1, static_cast<int>(kTick.count()));
                mailbox_->wakeUp->clear();
            }
            return maker_.isCancelled() ? Ending::Cancelled : Ending::ProcessEnded;
        }
    }
}

void MovieMaker::Job::endService()
{
    if (connection_)
        connection_->invalidate();
    if (!service_)
        return;
    // The service of one connection ends with it; one that hangs is ended.
    if (maker_.isCancelled() || !connection_ || !service_->waitForEnd(kGoodbye))
        service_->kill();
    service_->readLog();
}

Result<Movie> MovieMaker::Job::finish(Ending ending)
{
    if (ending == Ending::Stalled && !answer_) {
        service_->kill();
        endService();
        fail(&error_, ErrorCode::ServiceStalled,
             localized("the rendering service was ended, since it reported nothing for {}",
                       secondsText(maker_.limits_.stall)));
        return failed();
    }
    if (ending == Ending::Blind && !maker_.isCancelled()) {
        service_->kill();
        endService();
        return failed();
    }
    if (ending == Ending::FrameMissing && !maker_.isCancelled()) {
        service_->kill();
        endService();
        const Error reason = reasonOfMissingFrame();
        return maker_.isCancelled() ? cancelled() : reason;
    }
    if (maker_.isCancelled()) {
        // Also where the movie was made in the same moment: who stops the work wants nothing of it.
        endService();
        return cancelled();
    }
    if (answer_ && answer_->movie) {
        // The bookmark leads to the file even where the service gave it another name than was asked for.
        if (const auto made = platform::NSURL::URLByResolvingBookmarkData(*answer_->movie)) {
            learnPace();
            Result<Movie> outcome = takeMovie(*made);
            endService();
            return outcome;
        }
    }
    // The connection notices the end before the process has left the system's tables.
    const bool isConnectionLost = !answer_ || (answer_->error && isEndOfConnection(*answer_->error));
    if (isConnectionLost && service_->waitForEnd(kGoodbye)) {
        endService();
        std::string reason = localized("the rendering service ended unexpectedly {}", service_->howItEnded());
        if (const std::string complaint = lastComplaint(service_->logLines()); !complaint.empty())
            reason = localized("{}, saying: {}", reason, complaint);
        fail(&error_, ErrorCode::ServiceEnded, std::move(reason));
        return failed();
    }
    endService();
    explainFailure(answer_.value_or(Mailbox::Answer{}));
    return failed();
}

/// Of the processors' time, which other programs change less than the time that passes. Pieces are copied, which is
/// quicker than the timetable says.
void MovieMaker::Job::learnPace() const
{
    const auto taken = service_->processorTime();
    if (taken && request_.pieces.empty())
        machinePace_.learn(taken->count(), timetable_.work);
}

void MovieMaker::Job::noteFreeSpace()
{
    const FreeSpace now = freeSpace(saveFolder_.path());
    leastFree_ = {std::min(leastFree_.bytes, now.bytes), std::min(leastFree_.files, now.files)};
}

/// The service often answers without a reason; then the disk and the service's log are asked for one.
void MovieMaker::Job::explainFailure(const Mailbox::Answer& answer)
{
    const std::string complaint = lastComplaint(service_->logLines());
    noteFreeSpace();
    const bool isFull = leastFree_.bytes < kFullDiskBytes || leastFree_.files < kFullDiskFiles ||
                        complaint.find(reasonOfErrno(ENOSPC)) != std::string::npos;
    if (isFull)
        fail(&error_, ErrorCode::DiskFull, localized("no movie was made: the disk of {} is full", saveFolder_.path()));
    else if (answer.error)
        error_ = *answer.error;
    else if (!complaint.empty())
        fail(&error_, ErrorCode::ServiceFailed,
             localized("no movie was made; the rendering service said: {}", complaint));
    else
        fail(&error_, ErrorCode::ServiceFailed, localized("no movie was made; the rendering service gave no reason"));
}

/// A photo was good when it was looked at first; what became of it since?
Error MovieMaker::Job::reasonOfMissingFrame()
{
    const auto photo = std::ranges::find_if(request_.photos, [this](const PhotoFacts& facts) {
        return platform::NSURL::fileURLWithPath(facts.path.native(), false).absoluteString() == *missingFrame_;
    });
    if (photo == request_.photos.end()) {
        explainFailure({});
        return failed();
    }
    const CheckedPhotos checked = checkPhotos({{photo->path}}, [this](size_t) { return !maker_.isCancelled(); });
    const std::string name = photo->path.native();
    Error error{ErrorCode::Unsupported, photo->path,
                localized("no movie was made, since the rendering service could not read the photo {}", name)};
    const auto atStart = photosAtStart_[static_cast<size_t>(photo - request_.photos.begin())];
    if (checked.bad.empty() && atStart != FileNumber::of(photo->path))
        error.message = localized("no movie was made, since the photo {} was replaced while the movie was made", name);
    if (!checked.bad.empty())
        error.message = localized("no movie was made, since the photo {} cannot be used any more: {}", name,
                                  checked.bad.front().reason);
    if (std::error_code ignored; !std::filesystem::exists(photo->path, ignored))
        error.code = ErrorCode::FileNotFound;
    return error;
}

MovieQuestion MovieMaker::Job::questionAbout(const platform::NSURL& made) const
{
    const MoviePlan& plan = request_.plan;
    MovieQuestion question;
    question.file = made.path();
    question.expected.frameCount = plan.frameCount(request_.photos.size());
    question.expected.secondsPerFrame = plan.timePerFrame.count();
    question.expected.size = frameSizeForQuality(request_.quality, request_.photos);
    question.expected.codec = request_.codec;
    if (const auto end = plan.soundEnd())
        question.expected.soundEnd = end->count();
    if (request_.use == MovieUse::Web) {
        question.longestPicture = kLongestWebPicture;
        question.output = folder_->pathForFile("repeated.mov");
    }
    return question;
}

/// Has the movie read back and gives it its place.
Result<Movie> MovieMaker::Job::takeMovie(const platform::NSURL& made)
{
    const MovieQuestion question = questionAbout(made);
    const auto look = FileReader::shared().ask(question, [this] { return !maker_.isCancelled(); });
    if (!look && look.error().code == ErrorCode::Cancelled)
        return cancelled();
    if (!look)
        return Error{look.error().code, made.path(), fmt::format("{}: {}", made.path(), look.error().message)};
    if (!*look)
        return look->error();
    Movie outcome;
    outcome.faults = (*look)->faults;
    isRepeated_ = (*look)->isRepeated;
    const auto movie = isRepeated_ ? platform::NSURL::fileURLWithPath(question.output.native(), false) : made;

    const auto place = moveToFreeName(movie, saveFolder_, request_.title, "mov", &error_);
    if (!place)
        return failed();
    outcome.path = place->path();
    if (frameSource_) {
        outcome.reusedFrames = frameSource_->frames.size();
        outcome.frameSource = frameSource_->movie.path();
    }
    return outcome;
}

} // namespace stillora
