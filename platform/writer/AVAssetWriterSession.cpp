#include "platform/writer/AVAssetWriterSession.h"

#include "platform/files/NSFileManager.h"
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
    encoders_.resize(encoderCount > 0 ? encoderCount : encodersForThisMachine());
    NSError error;
    if (!settings)
        error = makeError("there is nothing to write to " + url_.lastPathComponent());
    else if ((encoders_[0] = AVAssetWriterEncoder::create(*settings, &error)))
        file_ = AVAssetWriterMovieFile::create(url_, &error);
    if (!file_) {
        encoders_.clear();
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
        capacity_ = encoders_.size() + 1;
        threadsAtWork_ = encoders_.size();
    }
    return startThreads();
}

bool AVAssetWriterSession::startThreads()
{
    const size_t count = encoders_.size();
    threads_.reserve(count);
    std::string reason;
    try {
        for (size_t place = 0; place < count; ++place)
            threads_.emplace_back([this, place] { work(place); });
        return true;
    } catch (const std::system_error& exception) {
        reason = exception.what();
    }
    end(AVAssetWriterStatus::Failed, makeError(url_.lastPathComponent() + " cannot be written: " + reason));
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
    return status_ == AVAssetWriterStatus::Writing && !ending_ && startTime_ && !isInputFinished_ &&
           queue_.size() < capacity_;
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

std::optional<int64_t> AVAssetWriterSession::movieTime(const CVPixelBuffer& buffer, CMTime presentationTime,
                                                       NSError* error)
{
    const std::string which = "frame " + std::to_string(times_.size()) + " of " + url_.lastPathComponent();
    const auto refuse = [&](const char* why) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, which + why);
        return std::nullopt;
    };
    if (static_cast<double>(buffer.width()) != settings_.width ||
        static_cast<double>(buffer.height()) != settings_.height)
        return refuse(" has not the video's size");
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
    NSError error;
    {
        LockGuard guard(lock_);
        if (status_ != AVAssetWriterStatus::Writing || ending_ || !startTime_ || isInputFinished_)
            return false;
        if (const auto time = movieTime(*buffer, presentationTime, &error)) {
            queue_.push_back({times_.size(), std::move(buffer)});
            times_.push_back(*time);
        }
    }
    if (buffer) {
        end(AVAssetWriterStatus::Failed, std::move(error));
        return false;
    }
    workChanged_.notify_all();
    return true;
}

void AVAssetWriterSession::work(size_t place)
{
    NSError error;
    bool isFine = encoders_[place] || makeAlikeEncoder(place, &error);
    while (isFine) {
        auto frame = takeFrame(*encoders_[place]);
        if (!frame)
            break;
        pump();
        std::vector<uint8_t> bytes;
        isFine = encoders_[place]->encode(std::move(frame->buffer), bytes, &error);
        if (isFine)
            deliver(frame->index, std::move(bytes));
    }
    if (!isFine)
        end(AVAssetWriterStatus::Failed, std::move(error));
    leave();
}

bool AVAssetWriterSession::makeAlikeEncoder(size_t place, NSError* error)
{
    encoders_[place] = AVAssetWriterEncoder::create(settings_, error);
    if (!encoders_[place])
        return false;
    return encoders_[place]->isAlike(*encoders_[0]) ||
           fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                "encoders of " + url_.lastPathComponent() + " do not agree on its header");
}

std::optional<AVAssetWriterSession::Frame> AVAssetWriterSession::takeFrame(const AVAssetWriterEncoder& encoder)
{
    LockGuard guard(lock_);
    while (true) {
        if (ending_ && *ending_ != AVAssetWriterStatus::Completed)
            return std::nullopt;
        const auto next = std::ranges::find_if(queue_, [&](const Frame& f) { return encoder.accepts(f.index); });
        if (next != queue_.end()) {
            Frame frame = std::move(*next);
            queue_.erase(next);
            // Others may wait for a frame of this queue that will not come now.
            if (queue_.empty() && ending_)
                workChanged_.notify_all();
            return frame;
        }
        if (ending_ && queue_.empty())
            return std::nullopt;
        workChanged_.wait(lock_);
    }
}

void AVAssetWriterSession::deliver(uint64_t index, std::vector<uint8_t> bytes)
{
    {
        LockGuard guard(lock_);
        packets_.emplace(index, std::move(bytes));
        if (isDraining_)
            return;
        isDraining_ = true;
    }
    drain();
}

void AVAssetWriterSession::drain()
{
    while (const auto packet = takePacket()) {
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
    const bool isGivenUp = ending_ && *ending_ != AVAssetWriterStatus::Completed;
    // How long a frame lasts is known with the next one's time, or when it is known that none will come.
    if (next == packets_.end() || isGivenUp || (isLast && !ending_)) {
        isDraining_ = false;
        return std::nullopt;
    }
    Packet packet;
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

bool AVAssetWriterSession::writePacket(const Packet& packet, NSError* error)
{
    if (!std::exchange(hasBegun_, true) &&
        !file_->begin(encoders_[0]->parameters(), packet.timescale, indexFirst_, maximumSampleCount_, metadata_, error))
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
    encoders_.clear();
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
        const bool isDecided = ending_ && *ending_ != AVAssetWriterStatus::Completed;
        if (status_ != AVAssetWriterStatus::Writing || isDecided)
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
