#pragma once

#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSError.h"
#include "platform/media/CMTime.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriter.h"
#include "platform/writer/AVAssetWriterInput.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <vector>

namespace platform {

class AVAssetWriterEncoder;
class AVAssetWriterMovieFile;

/// One movie in the making: what a writer and its input share. Frames wait in a queue for the session's threads, and
/// for those of callers that code ahead; each coding takes one frame and one idle encoder. Whoever
/// finishes the packet that the file needs next writes it and those that wait behind it. The last thread to leave
/// completes or removes the file. For the writer alone; any thread.
class AVAssetWriterSession final : public std::enable_shared_from_this<AVAssetWriterSession> {
public:
    explicit AVAssetWriterSession(NSURL url);
    ~AVAssetWriterSession();
    AVAssetWriterSession(const AVAssetWriterSession&) = delete;
    AVAssetWriterSession& operator=(const AVAssetWriterSession&) = delete;

    const NSURL& url() const { return url_; }

    /// @name The writer's side; as told there
    /// @{
    /// Without settings, of an input, it fails.
    bool start(const std::optional<AVVideoSettings>& settings, std::optional<size_t> maximumSampleCount,
               size_t encoderCount, bool indexFirst, AVMetadataItemList metadata);
    void startAtSourceTime(CMTime startTime);
    void finish(std::function<void()> handler);
    void cancel();
    AVAssetWriterStatus status() const;
    std::optional<NSError> error() const;
    AVAssetWriterStatus waitWhileWriting(double seconds) const;
    /// @}

    /// @name The input's side; as told there
    /// @{
    bool isReady() const;
    void requestMediaData(std::shared_ptr<DispatchQueue> queue, std::function<void()> block);
    void markAsFinished();
    bool append(std::shared_ptr<CVPixelBuffer> buffer, CMTime presentationTime);
    bool appendPacket(std::vector<uint8_t> packet, CMTime presentationTime);
    void codeAhead(CVPixelBuffer& buffer, uint64_t index);
    /// @}

private:
    struct Frame {
        uint64_t index = 0;
        std::shared_ptr<CVPixelBuffer> buffer;
    };
    /// A frame on its way through an encoder.
    struct Coding {
        Frame frame;
        std::unique_ptr<AVAssetWriterEncoder> encoder;
    };
    enum class Coder { Thread, Caller };
    struct Packet {
        uint64_t index = 0;
        std::vector<uint8_t> bytes;
        int64_t time = 0;
        int64_t duration = 0;
        int32_t timescale = 0;
    };
    struct Request {
        std::shared_ptr<DispatchQueue> queue;
        std::shared_ptr<std::function<void()>> block;
        bool isRunning = false;
    };

    bool isReadyLocked() const REQUIRES(lock_);
    /// Asks for media if there is room and it is not being asked for already.
    void pump();
    bool hasVideoSize(const CVPixelBuffer& buffer) const;
    /// The frame's time in the movie's time scale; nothing, and why, if it cannot stand there.
    [[nodiscard]] std::optional<int64_t> movieTime(CMTime presentationTime, NSError* error) REQUIRES(lock_);
    /// @param buffer  null where the frame comes as a packet
    bool append(std::shared_ptr<CVPixelBuffer> buffer, std::vector<uint8_t> packet, CMTime presentationTime);

    bool startThreads(size_t count);
    /// What a thread does.
    void work();
    /// Waits for a frame and an idle encoder: a thread until no more will come, a caller only for encoders that are at
    /// work. Makes encoders up to the limit. Nothing, too, if that failed.
    std::optional<Coding> nextCoding(Coder coder);
    std::optional<Coding> takeCoding() REQUIRES(lock_);
    /// Adds an idle encoder; on failure the session ends.
    [[nodiscard]] bool addEncoder();
    /// @return false on failure; the session then ends
    [[nodiscard]] bool code(Coding coding);
    bool isGivenUp() const REQUIRES(lock_);
    /// Writes what can be written, unless another thread is at it.
    void startDraining();
    /// Writes all packets whose turn has come.
    void drain();
    std::optional<Packet> takePacket();
    [[nodiscard]] bool writePacket(Packet& packet, NSError* error);
    void leave();

    /// Decides how it will end, unless that is decided; what is about to complete can still fail or be cancelled.
    void end(AVAssetWriterStatus how, std::optional<NSError> error);
    AVAssetWriterStatus decidedEnding() const;
    /// Says that all is over and lets go of what was lent.
    /// @return false if another ending was decided meanwhile
    bool settle(AVAssetWriterStatus status);

    const NSURL url_;
    AVVideoSettings settings_;
    std::optional<size_t> maximumSampleCount_;
    bool indexFirst_ = false;
    AVMetadataItemList metadata_;
    mutable Lock lock_;
    mutable Condition statusChanged_;
    Condition workChanged_;
    AVAssetWriterStatus status_ GUARDED_BY(lock_) = AVAssetWriterStatus::Unknown;
    std::optional<NSError> error_ GUARDED_BY(lock_);
    /// How it will end, once that is decided.
    std::optional<AVAssetWriterStatus> ending_ GUARDED_BY(lock_);
    std::optional<CMTime> startTime_ GUARDED_BY(lock_);
    int32_t timescale_ GUARDED_BY(lock_) = 0;
    /// Of all frames appended so far.
    std::vector<int64_t> times_ GUARDED_BY(lock_);
    /// To be coded, in the order in which they came.
    std::deque<Frame> queue_ GUARDED_BY(lock_);
    /// Indexes of frames that are here before they are appended.
    std::set<uint64_t> ahead_ GUARDED_BY(lock_);
    size_t capacity_ GUARDED_BY(lock_) = 0;
    bool isInputFinished_ GUARDED_BY(lock_) = false;
    std::optional<Request> request_ GUARDED_BY(lock_);
    std::map<uint64_t, std::vector<uint8_t>> packets_ GUARDED_BY(lock_);
    uint64_t nextPacket_ GUARDED_BY(lock_) = 0;
    bool isDraining_ GUARDED_BY(lock_) = false;
    /// Callers among them, as long as they code or write.
    size_t threadsAtWork_ GUARDED_BY(lock_) = 0;
    std::vector<std::unique_ptr<AVAssetWriterEncoder>> idleEncoders_ GUARDED_BY(lock_);
    /// At work and idle.
    size_t encoderCount_ GUARDED_BY(lock_) = 0;
    size_t encoderLimit_ GUARDED_BY(lock_) = 0;
    std::vector<std::function<void()>> handlers_ GUARDED_BY(lock_);

    /// Only the thread that drains, or the last one.
    std::unique_ptr<AVAssetWriterMovieFile> file_;
    bool hasBegun_ = false;

    /// Gives the file its header and is one of the others otherwise; there from the start to the last thread's leaving.
    const AVAssetWriterEncoder* firstEncoder_ = nullptr;
    std::vector<std::jthread> threads_;
};

} // namespace platform
