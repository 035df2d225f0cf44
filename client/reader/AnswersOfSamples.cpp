#include "client/reader/Answers.h"
#include "platform/files/NSURL.h"
#include "platform/pixels/CVPixelBuffer.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "video/PhotoFrame.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <vector>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;

Seconds threadTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Codes frames by one codec; one thread.
class FrameCoder final {
public:
    FrameCoder(std::string codec, Size frame)
        : codec_(std::move(codec)), frame_(frame), encoder_(platform::AVAssetWriterEncoder::create(
                                                       {.codec = codec_, .width = frame.width, .height = frame.height}))
    {}

    /// The calling thread's own, kept for the next frame: setting one up may take longer than a frame does.
    static FrameCoder& forThread(const std::string& codec, Size frame)
    {
        static thread_local std::optional<FrameCoder> coder;
        if (!coder || coder->codec_ != codec || coder->frame_ != frame)
            coder.emplace(codec, frame);
        return *coder;
    }

    std::optional<double> bytesOf(const std::shared_ptr<platform::CVPixelBuffer>& frame)
    {
        std::vector<uint8_t> packet;
        if (!encoder_ || !encoder_->encode(frame, packet))
            return std::nullopt;
        return static_cast<double>(packet.size());
    }

private:
    const std::string codec_;
    const Size frame_;
    const std::unique_ptr<platform::AVAssetWriterEncoder> encoder_;
};

} // namespace

Result<SampledFrame> answerTo(const SampleQuestion& question)
{
    const Seconds processorTime = threadTime();
    FrameCoder& coder = FrameCoder::forThread(question.codec, question.frame);
    const auto start = Clock::now();
    const auto frame = renderPhotoFrame({.photo = platform::NSURL::fileURLWithPath(question.file.native(), false),
                                         .photoSize = {question.photoSize.width, question.photoSize.height},
                                         .frame = {question.frame.width, question.frame.height},
                                         .reduceBorders = question.reducesBorders,
                                         .carriesWatermark = question.carriesWatermark});
    const auto bytes = frame ? coder.bytesOf(frame->buffer) : std::nullopt;
    if (!bytes)
        return Error{};
    return SampledFrame{*bytes, Clock::now() - start, threadTime() - processorTime};
}

double answerTo(const BlackFrameQuestion& question)
{
    std::shared_ptr<platform::CVPixelBuffer> buffer;
    if (platform::CVPixelBufferCreate(static_cast<size_t>(question.frame.width),
                                      static_cast<size_t>(question.frame.height), platform::kCVPixelFormatType_32ARGB,
                                      &buffer) != platform::kCVReturnSuccess ||
        buffer->lockBaseAddress() != platform::kCVReturnSuccess)
        return 0;
    std::fill_n(buffer->baseAddress(), buffer->bytesPerRow() * buffer->height(), uint8_t{0});
    buffer->unlockBaseAddress();
    return FrameCoder::forThread(question.codec, question.frame).bytesOf(buffer).value_or(0);
}

} // namespace stillora
