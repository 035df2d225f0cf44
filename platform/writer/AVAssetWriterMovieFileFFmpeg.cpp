#include "platform/writer/AVAssetWriterMovieFile.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/LibavLog.h"
#include "platform/media/MovieMetadata.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

namespace platform {

namespace {

struct FreeOutput {
    void operator()(AVIOContext* output) const
    {
        av_freep(&output->buffer);
        avio_context_free(&output);
    }
};

/// Frames are larger; what is smaller is the index, written in words.
constexpr int kBufferBytes = 1 << 16;

/// Upper bounds of the index: all that does not grow with the packets (the codec's header included), and for each
/// packet its size (4 bytes), its duration (8), its chunk's offset (8) and number of packets (12).
constexpr size_t kIndexBytes = 8192;
constexpr size_t kIndexBytesPerPacket = 32;

class MovieFileFFmpeg final : public AVAssetWriterMovieFile {
public:
    explicit MovieFileFFmpeg(const NSURL& url) : path_(url.path()), name_(url.lastPathComponent()) {}

    ~MovieFileFFmpeg() override
    {
        if (file_ && !finished_)
            unlink(path_.c_str());
    }

    bool open(NSError* error)
    {
        file_.reset(::open(path_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666));
        if (file_)
            return true;
        if (errno == EEXIST)
            return fail(error, kAVFoundationErrorDomain, kAVErrorFileAlreadyExists, name_ + " is there already");
        return failWithErrno(error, errno, name_ + " cannot be made");
    }

    bool begin(const AVCodecParameters& parameters, int32_t timescale, bool indexFirst,
               std::optional<size_t> maximumPackets, const AVMetadataItemList& metadata, NSError* error) override
    {
        silenceLibavLog();
        AVFormatContext* made = nullptr;
        const std::string location = "file:" + path_;
        int result = avformat_alloc_output_context2(&made, nullptr, "mov", location.c_str());
        format_.reset(made);
        if (result < 0)
            return failWith(result, error);
        packet_.reset(av_packet_alloc());
        auto* const buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
        if (buffer)
            output_.reset(avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, &MovieFileFFmpeg::put,
                                             &MovieFileFFmpeg::seek));
        if (!packet_ || !output_)
            return failWith(AVERROR(ENOMEM), error);
        format_->pb = output_.get();
        format_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
        const size_t roomForTitle = setMovieMetadata(*format_, metadata);

        AVStream* const stream = avformat_new_stream(format_.get(), nullptr);
        if (!stream)
            return failWith(AVERROR(ENOMEM), error);
        result = avcodec_parameters_copy(stream->codecpar, &parameters);
        if (result < 0)
            return failWith(result, error);
        stream->time_base = {1, timescale};
        stream->sample_aspect_ratio = parameters.sample_aspect_ratio;

        AVDictionary* options = nullptr;
        av_dict_set_int(&options, "video_track_timescale", timescale, 0);
        av_dict_set_int(&options, "movie_timescale", timescale, 0);
        if (indexFirst && maximumPackets)
            av_dict_set_int(&options, "moov_size",
                            static_cast<int64_t>(kIndexBytes + roomForTitle + kIndexBytesPerPacket * *maximumPackets),
                            0);
        else if (indexFirst)
            av_dict_set(&options, "movflags", "+faststart", 0);
        result = avformat_write_header(format_.get(), &options);
        av_dict_free(&options);
        if (result < 0)
            return failWith(result, error);
        if (stream->time_base.num != 1 || stream->time_base.den != timescale)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                        name_ + " cannot hold times of 1/" + std::to_string(timescale) + " s");
        return true;
    }

    bool write(std::span<const uint8_t> packet, int64_t time, int64_t duration, NSError* error) override
    {
        // Borrowed: the library writes it at once.
        packet_->data = const_cast<uint8_t*>(packet.data());
        packet_->size = static_cast<int>(packet.size());
        packet_->pts = packet_->dts = time;
        packet_->duration = duration;
        packet_->flags = AV_PKT_FLAG_KEY;
        packet_->stream_index = 0;
        const int result = av_write_frame(format_.get(), packet_.get());
        av_packet_unref(packet_.get());
        return result >= 0 || failWith(result, error);
    }

    bool finish(NSError* error) override
    {
        int result = av_write_trailer(format_.get());
        if (result >= 0) {
            avio_flush(output_.get());
            result = output_->error;
        }
        if (result < 0)
            return failWith(result, error);
        // Some file systems tell only now that there was no room.
        if (::close(file_.release()) != 0) {
            const int reason = errno;
            unlink(path_.c_str());
            return failWithSystem(reason, error);
        }
        finished_ = true;
        return true;
    }

private:
    static int put(void* opaque, uint8_t* bytes, int count)
    {
        auto& self = *static_cast<MovieFileFFmpeg*>(opaque);
        int written = 0;
        while (written < count) {
            const ssize_t step = ::write(self.file_.get(), bytes + written, static_cast<size_t>(count - written));
            if (step > 0) {
                written += static_cast<int>(step);
            } else if (step == 0 || errno != EINTR) {
                self.writeError_ = step == 0 ? EIO : errno;
                return AVERROR(self.writeError_);
            }
        }
        return count;
    }

    static int64_t seek(void* opaque, int64_t offset, int whence)
    {
        auto& self = *static_cast<MovieFileFFmpeg*>(opaque);
        if (whence & AVSEEK_SIZE)
            return -1;
        const off_t result = lseek(self.file_.get(), offset, whence & ~AVSEEK_FORCE);
        return result < 0 ? AVERROR(errno) : result;
    }

    bool failWithSystem(int reason, NSError* error) const
    {
        if (reason == ENOSPC || reason == EDQUOT)
            return fail(error, kAVFoundationErrorDomain, kAVErrorDiskFull,
                        localized("{} cannot be written: there is no room left on its disk", {name_}));
        return failWithErrno(error, reason, localized("{} cannot be written", {name_}));
    }

    bool failWith(int averror, NSError* error) const
    {
        // The system's reason, where it was the file: the library reports that it failed, not always why.
        if (writeError_ != 0)
            return failWithSystem(writeError_, error);
        return failWithAVError(error, averror, localized("{} cannot be written", {name_}));
    }

    const std::string path_;
    const std::string name_;
    FileDescriptor file_;
    std::unique_ptr<AVIOContext, FreeOutput> output_;
    Handle<AVFormatContext, avformat_free_context> format_;
    PacketPtr packet_;
    int writeError_ = 0;
    bool finished_ = false;
};

} // namespace

std::unique_ptr<AVAssetWriterMovieFile> AVAssetWriterMovieFile::create(const NSURL& url, NSError* error)
{
    auto file = std::make_unique<MovieFileFFmpeg>(url);
    if (!file->open(error))
        return nullptr;
    return file;
}

} // namespace platform
