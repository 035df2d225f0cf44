#include "platform/writer/AVAssetWriterSession.h"

#include "platform/files/NSFileManager.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSLog.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "platform/writer/AVAssetWriterMovieFile.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

namespace platform {

namespace {

/// Enough to keep up with the frames of many processors; every encoder holds memory of several frames.
constexpr size_t kMaximumEncoders = 8;

size_t encodersForThisMachine()
{
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMaximumEncoders);
}

NSError makeError(std::string description)
{
    return {std::string(kAVFoundationErrorDomain), kAVErrorUnknown, std::move(description)};
}

} // namespace

AVAssetWriterSession::AVAssetWriterSession(NSURL url) : url_(std::move(url)) {}

AVAssetWriterSession::~AVAssetWriterSession()
{
    cancel();
}

bool AVAssetWriterSession::start(const std::optional<AVVideoSettings>& settings,
                                 std::optional<size_t> maximumSampleCount, size_t encoderCount, bool indexFirst,
                                 AVMetadataItemList metadata)
{
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Unknown || ending_)
            return false;
    }
    const size_t threadCount = encoderCount > 0 ? encoderCount : encodersForThisMachine();
    std::unique_ptr<AVAssetWriterEncoder> encoder;
    NSError error;
    if (!settings)
        error = makeError("there is nothing to write to " + url_.lastPathComponent());
    else if ((encoder = AVAssetWriterEncoder::create(*settings, &error)))
        file_ = AVAssetWriterMovieFile::create(url_, &error);
    if (!file_) {
        {
            LockGuard guard(lock_);
            error_ = std::move(error);
        }
        settle(AVAssetWriterStatus::Failed);
        return false;
    }
    settings_ = *settings;
    maximumSampleCount_ = maximumSampleCount;
    indexFirst_ = indexFirst;
    metadata_ = std::move(metadata);
    {
        LockGuard guard(lock_);
        status_ = AVAssetWriterStatus::Writing;
        // One frame more than are being coded, so that an encoder never waits for the feeding.
        capacity_ = threadCount + 1;
        threadsAtWork_ = threadCount;
        // Further ones would take memory and no other time.
        encoderLimit_ = std::max(threadCount, encodersForThisMachine());
        encoderCount_ = 1;
        firstEncoder_ = encoder.get();
        idleEncoders_.push_back(std::move(encoder));
    }
    return startThreads(threadCount);
}

bool AVAssetWriterSession::startThreads(size_t count)
{
    threads_.reserve(count);
    std::string reason;
    try {
        while (threads_.size() < count)
            threads_.emplace_back([this] { work(); });
        return true;
    } catch (const std::system_error& exception) {
        reason = exception.what();
    }
    end(AVAssetWriterStatus::Failed,
        makeError(localized("{} cannot be written: {}", {url_.lastPathComponent(), reason})));
    // As if the threads that are missing had come and gone.
    for (size_t missing = threads_.size(); missing < count; ++missing)
        leave();
    return false;
}

void AVAssetWriterSession::startAtSourceTime(CMTime startTime)
{
    if (!startTime.isNumeric()) {
        end(AVAssetWriterStatus::Failed,
            makeError("the session of " + url_.lastPathComponent() + " has no start time"));
        return;
    }
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Writing || startTime_)
            return;
        startTime_ = startTime;
    }
    pump();
}

void AVAssetWriterSession::finish(std::function<void()> handler)
{
    bool isOver = false;
    bool isEmpty = false;
    {
        LockGuard guard(lock_);
        isInputFinished_ = true;
        isOver = status_ != AVAssetWriterStatus::Writing;
        isEmpty = times_.empty();
        if (!isOver && handler)
            handlers_.push_back(std::exchange(handler, nullptr));
    }
    if (isOver) {
        if (handler)
            DispatchQueue::global()->async(std::move(handler));
        return;
    }
    if (isEmpty)
        end(AVAssetWriterStatus::Failed, makeError(url_.lastPathComponent() + " got no frame"));
    else
        end(AVAssetWriterStatus::Completed, std::nullopt);
}

void AVAssetWriterSession::cancel()
{
    bool isUntouched = false;
    {
        LockGuard guard(lock_);
        isUntouched = status_ == AVAssetWriterStatus::Unknown;
    }
    if (isUntouched) {
        settle(AVAssetWriterStatus::Cancelled);
        return;
    }
    end(AVAssetWriterStatus::Cancelled, std::nullopt);
    LockGuard guard(lock_);
    while (status_ == AVAssetWriterStatus::Writing)
        statusChanged_.wait(lock_);
}

AVAssetWriterStatus AVAssetWriterSession::status() const
{
    LockGuard guard(lock_);
    return status_;
}

std::optional<NSError> AVAssetWriterSession::error() const
{
    LockGuard guard(lock_);
    return status_ == AVAssetWriterStatus::Failed ? error_ : std::nullopt;
}

AVAssetWriterStatus AVAssetWriterSession::waitWhileWriting(double seconds) const
{
    // A wait of a day is for ever, and keeps the sum below within its range.
    const auto wait = std::chrono::duration<double>(std::clamp(seconds, 0.0, 86400.0));
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(wait);
    LockGuard guard(lock_);
    while (status_ == AVAssetWriterStatus::Writing &&
           statusChanged_.wait_until(lock_, deadline) != std::cv_status::timeout) {
    }
    return status_;
}

bool AVAssetWriterSession::isReady() const
{
    LockGuard guard(lock_);
    return isReadyLocked();
}

bool AVAssetWriterSession::isReadyLocked() const
{
    // Frames ahead of their turn take nobody's room.
    const auto waiting =
        std::ranges::count_if(queue_, [count = times_.size()](const Frame& frame) { return frame.index < count; });
    return status_ == AVAssetWriterStatus::Writing && !ending_ && startTime_ && !isInputFinished_ &&
           static_cast<size_t>(waiting) < capacity_;
}

void AVAssetWriterSession::requestMediaData(std::shared_ptr<DispatchQueue> queue, std::function<void()> block)
{
    {
        LockGuard guard(lock_);
        const bool isOver = status_ > AVAssetWriterStatus::Writing;
        if (request_ || isOver || isInputFinished_)
            return;
        request_ = Request{std::move(queue), std::make_shared<std::function<void()>>(std::move(block))};
    }
    pump();
}

void AVAssetWriterSession::pump()
{
    std::shared_ptr<DispatchQueue> queue;
    std::shared_ptr<std::function<void()>> block;
    {
        LockGuard guard(lock_);
        if (!request_ || request_->isRunning || !isReadyLocked())
            return;
        request_->isRunning = true;
        queue = request_->queue;
        block = request_->block;
    }
    queue->async([weakSession = weak_from_this(), block = std::move(block)] {
        const auto session = weakSession.lock();
        if (!session)
            return;
        if (session->isReady())
            (*block)();
        {
            LockGuard guard(session->lock_);
            if (session->request_)
                session->request_->isRunning = false;
        }
        session->pump();
    });
}

void AVAssetWriterSession::markAsFinished()
{
    // What the block holds is let go of outside the lock: it may be the writer itself.
    std::optional<Request> request;
    LockGuard guard(lock_);
    isInputFinished_ = true;
    request.swap(request_);
}

bool AVAssetWriterSession::hasVideoSize(const CVPixelBuffer& buffer) const
{
    return static_cast<double>(buffer.width()) == settings_.width &&
           static_cast<double>(buffer.height()) == settings_.height;
}

std::optional<int64_t> AVAssetWriterSession::movieTime(CMTime presentationTime, NSError* error)
{
    const std::string which = "frame " + std::to_string(times_.size()) + " of " + url_.lastPathComponent();
    const auto refuse = [&](const char* why) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, which + why);
        return std::nullopt;
    };
    if (maximumSampleCount_ && times_.size() >= *maximumSampleCount_)
        return refuse(" is one more than was said to come");
    if (!presentationTime.isNumeric())
        return refuse(" has no time");
    const int32_t timescale = times_.empty() ? presentationTime.timescale : timescale_;
    const CMTime time = CMTimeConvertScale(CMTimeSubtract(presentationTime, *startTime_), timescale,
                                           CMTimeRoundingMethod::RoundHalfAwayFromZero);
    if (!time.isNumeric() || time.value < 0)
        return refuse(" stands before the movie's start");
    if (!times_.empty() && time.value <= times_.back())
        return refuse(" stands no later than the one before it");
    timescale_ = timescale;
    return time.value;
}

bool AVAssetWriterSession::append(std::shared_ptr<CVPixelBuffer> buffer, CMTime presentationTime)
{
    return append(std::move(buffer), {}, presentationTime);
}

bool AVAssetWriterSession::appendPacket(std::vector<uint8_t> packet, CMTime presentationTime)
{
    return append(nullptr, std::move(packet), presentationTime);
}

bool AVAssetWriterSession::append(std::shared_ptr<CVPixelBuffer> buffer, std::vector<uint8_t> packet,
                                  CMTime presentationTime)
{
    NSError error;
    bool isFine = false;
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Writing || ending_ || !startTime_ || isInputFinished_)
            return false;
        std::optional<int64_t> time;
        if (buffer && !hasVideoSize(*buffer))
            error = makeError("frame " + std::to_string(times_.size()) + " of " + url_.lastPathComponent() +
                              " has not the video's size");
        else
            time = movieTime(presentationTime, &error);
        if (time) {
            isFine = true;
            if (!buffer)
                packets_.emplace(times_.size(), std::move(packet));
            else if (ahead_.erase(times_.size()) == 0)
                queue_.push_back({times_.size(), std::move(buffer)});
            times_.push_back(*time);
            // Cancelling waits for those at work.
            ++threadsAtWork_;
        }
    }
    if (!isFine) {
        end(AVAssetWriterStatus::Failed, std::move(error));
        return false;
    }
    workChanged_.notify_all();
    startDraining();
    leave();
    return true;
}

void AVAssetWriterSession::codeAhead(CVPixelBuffer& buffer, uint64_t index)
{
    // Given back outside the lock.
    std::shared_ptr<CVPixelBuffer> pixels;
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Writing || ending_ || index < times_.size() || ahead_.contains(index) ||
            !hasVideoSize(buffer) || !(pixels = buffer.takePixels()))
            return;
        ahead_.insert(index);
        queue_.push_back({index, std::move(pixels)});
        ++threadsAtWork_;
    }
    workChanged_.notify_all();
    while (auto coding = nextCoding(Coder::Caller))
        if (!code(std::move(*coding)))
            break;
    leave();
}

void AVAssetWriterSession::work()
{
    while (auto coding = nextCoding(Coder::Thread)) {
        pump();
        if (!code(std::move(*coding)))
            break;
    }
    leave();
}

bool AVAssetWriterSession::isGivenUp() const
{
    return ending_ && *ending_ != AVAssetWriterStatus::Completed;
}

std::optional<AVAssetWriterSession::Coding> AVAssetWriterSession::nextCoding(Coder coder)
{
    const bool isCaller = coder == Coder::Caller;
    do {
        LockGuard guard(lock_);
        while (true) {
            // Callers leave the session's threads as many frames as these can take up at once.
            const bool hasWork = queue_.size() >= (isCaller ? threads_.size() : 1);
            if (isGivenUp() || (!hasWork && (isCaller || ending_)))
                return std::nullopt;
            auto coding = hasWork ? takeCoding() : std::nullopt;
            if (coding)
                return coding;
            if (hasWork && encoderCount_ < encoderLimit_)
                break;
            workChanged_.wait(lock_);
        }
        ++encoderCount_;
    } while (addEncoder());
    return std::nullopt;
}

std::optional<AVAssetWriterSession::Coding> AVAssetWriterSession::takeCoding()
{
    if (queue_.empty() || idleEncoders_.empty())
        return std::nullopt;
    Coding coding{std::move(queue_.front()), std::move(idleEncoders_.back())};
    queue_.pop_front();
    idleEncoders_.pop_back();
    // Others may wait for a frame of this queue that will not come now.
    if (queue_.empty() && ending_)
        workChanged_.notify_all();
    return coding;
}

bool AVAssetWriterSession::addEncoder()
{
    NSError error;
    auto encoder = AVAssetWriterEncoder::create(settings_, &error);
    if (encoder && !encoder->isAlike(*firstEncoder_)) {
        error = makeError("encoders of " + url_.lastPathComponent() + " do not agree on its header");
        encoder = nullptr;
    }
    if (!encoder) {
        end(AVAssetWriterStatus::Failed, std::move(error));
        return false;
    }
    LockGuard guard(lock_);
    idleEncoders_.push_back(std::move(encoder));
    return true;
}

bool AVAssetWriterSession::code(Coding coding)
{
    NSError error;
    std::vector<uint8_t> bytes;
    const bool isFine = coding.encoder->encode(std::move(coding.frame.buffer), bytes, &error);
    {
        LockGuard guard(lock_);
        idleEncoders_.push_back(std::move(coding.encoder));
        if (isFine)
            packets_.emplace(coding.frame.index, std::move(bytes));
    }
    workChanged_.notify_all();
    if (isFine)
        startDraining();
    else
        end(AVAssetWriterStatus::Failed, std::move(error));
    return isFine;
}

void AVAssetWriterSession::startDraining()
{
    {
        LockGuard guard(lock_);
        if (std::exchange(isDraining_, true))
            return;
    }
    drain();
}

void AVAssetWriterSession::drain()
{
    while (auto packet = takePacket()) {
        NSError error;
        if (!writePacket(*packet, &error))
            end(AVAssetWriterStatus::Failed, std::move(error));
    }
}

/// Also ends the draining, in the same breath as it finds nothing to write: a packet that comes later is then seen by
/// its own thread.
std::optional<AVAssetWriterSession::Packet> AVAssetWriterSession::takePacket()
{
    LockGuard guard(lock_);
    const auto next = packets_.find(nextPacket_);
    const bool isLast = nextPacket_ + 1 == times_.size();
    // How long a frame lasts is known with the next one's time, or when it is known that none will come.
    if (next == packets_.end() || nextPacket_ >= times_.size() || isGivenUp() || (isLast && !ending_)) {
        isDraining_ = false;
        return std::nullopt;
    }
    Packet packet;
    packet.index = nextPacket_;
    packet.bytes = std::move(next->second);
    packet.time = times_[nextPacket_];
    packet.timescale = timescale_;
    if (!isLast)
        packet.duration = times_[nextPacket_ + 1] - packet.time;
    else if (nextPacket_ > 0)
        packet.duration = packet.time - times_[nextPacket_ - 1];
    else
        packet.duration = timescale_; // a lone frame has no distance to repeat: one second
    packets_.erase(next);
    ++nextPacket_;
    return packet;
}

bool AVAssetWriterSession::writePacket(Packet& packet, NSError* error)
{
    if (!firstEncoder_->number(packet.bytes, packet.index))
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                    "frame " + std::to_string(packet.index) + " of " + url_.lastPathComponent() +
                        " is not coded as the others are");
    if (!std::exchange(hasBegun_, true) && !file_->begin(firstEncoder_->parameters(), packet.timescale, indexFirst_,
                                                         maximumSampleCount_, metadata_, error))
        return false;
    return file_->write(packet.bytes, packet.time, packet.duration, error);
}

void AVAssetWriterSession::leave()
{
    {
        LockGuard guard(lock_);
        if (--threadsAtWork_ > 0)
            return;
    }
    drain();
    bool isWhole = false;
    if (decidedEnding() == AVAssetWriterStatus::Completed) {
        NSError error;
        isWhole = file_->finish(&error);
        if (!isWhole)
            end(AVAssetWriterStatus::Failed, std::move(error));
    }
    file_.reset();
    // Encoders are large.
    decltype(idleEncoders_) encoders;
    {
        LockGuard guard(lock_);
        encoders.swap(idleEncoders_);
    }
    encoders.clear();
    if (isWhole && settle(AVAssetWriterStatus::Completed))
        return;
    // A cancel that came during the last moments: the finished file is not wanted.
    if (isWhole)
        (void)NSFileManager::defaultManager().removeItemAtURL(url_);
    settle(decidedEnding());
}

void AVAssetWriterSession::end(AVAssetWriterStatus how, std::optional<NSError> error)
{
    // Frames are given back outside the lock.
    std::deque<Frame> dropped;
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Writing || isGivenUp())
            return;
        ending_ = how;
        error_ = std::move(error);
        if (how != AVAssetWriterStatus::Completed)
            dropped.swap(queue_);
    }
    workChanged_.notify_all();
}

AVAssetWriterStatus AVAssetWriterSession::decidedEnding() const
{
    LockGuard guard(lock_);
    return *ending_;
}

bool AVAssetWriterSession::settle(AVAssetWriterStatus status)
{
    std::vector<std::function<void()>> handlers;
    std::optional<Request> request;
    std::optional<NSError> error;
    {
        LockGuard guard(lock_);
        if (ending_ && *ending_ != status)
            return false;
        if (status == AVAssetWriterStatus::Failed)
            error = error_;
    }
    // Before the status tells: whoever waits for it finds the reason in the log.
    if (error)
        logFailure("AVAssetWriter", error->localizedDescription);
    {
        LockGuard guard(lock_);
        if (ending_ && *ending_ != status)
            return false;
        status_ = status;
        handlers.swap(handlers_);
        request.swap(request_);
    }
    statusChanged_.notify_all();
    // The handlers, and what the block holds, may be the last to hold this session: never let go of on its own threads.
    if (request || !handlers.empty())
        DispatchQueue::global()->async([request = std::move(request), handlers = std::move(handlers)] {
            for (const auto& handler : handlers)
                handler();
        });
    return true;
}

} // namespace platform
