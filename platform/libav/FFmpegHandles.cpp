#include "platform/libav/FFmpegHandles.h"

#include "platform/bytes/ByteSource.h"
#include "platform/libav/ID3Head.h"
#include "platform/libav/LibavLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

#include <array>
#include <cerrno>
#include <string>
#include <sys/stat.h>

namespace platform {
namespace {

// No format that names other files, and no decoder that no sound or movie of ours needs.
constexpr const char* kFormats = "aac,aiff,au,caf,flac,mov,mp3,ogg,w64,wav";
constexpr const char* kDecoders =
    "aac,adpcm_ima_qt,adpcm_ima_wav,adpcm_ms,alac,flac,mp2float,mp3float,opus,pcm_alaw,pcm_f32be,pcm_f32le,pcm_f64be,"
    "pcm_f64le,pcm_mulaw,pcm_s16be,pcm_s16le,pcm_s24be,pcm_s24le,pcm_s32be,pcm_s32le,pcm_s8,pcm_u8,vorbis";

class Options final {
public:
    ~Options() { av_dict_free(&dictionary_); }
    void set(const char* key, const char* value) { av_dict_set(&dictionary_, key, value, 0); }
    AVDictionary** get() { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

/// What to open beside whole files.
struct Opening {
    std::string location;
    const char* protocols = "file";
    const char* formats = kFormats;
    /// Null where the library is to find out.
    const AVInputFormat* format = nullptr;
    int (*isInterrupted)(void* context) = nullptr;
};

/// Spelled out, so that no part of the path is taken for a protocol.
std::string locationOf(const NSURL& url)
{
    return "file:" + url.path();
}

/// Asked before each read: whether a head has become longer than it may be.
int hasReadTooMuch(void* context)
{
    constexpr int64_t kMaxHeadBytes = int64_t{64} << 20;
    const AVIOContext* const file = static_cast<AVFormatContext*>(context)->pb;
    return file && file->bytes_read > kMaxHeadBytes ? 1 : 0;
}

/// The library looks for the format of sound behind a tag in ever longer pieces of it, with each format that it knows.
/// This takes twenty times as long as reading the tag, so MP3 is told here; null for other formats.
const AVInputFormat* formatOfMP3(const NSURL& url)
{
    const FileBytes file(url.path());
    std::array<uint8_t, 2> start{};
    const bool isLayer3 = file.read(endOfID3Tags(file), start) && start[0] == 0xFF && (start[1] & 0xE6) == 0xE2;
    return isLayer3 ? av_find_input_format("mp3") : nullptr;
}

InputPtr openInput(const NSURL& url, const Opening& opening, Options& options, NSError* error)
{
    silenceLibavLog();

    // A pipe or device would be waited for.
    struct stat status {};
    if (stat(url.path().c_str(), &status) != 0) {
        failWithErrno(error, errno, url.path() + " could not be opened");
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized, url.path() + " is no regular file");
        return nullptr;
    }

    AVFormatContext* context = avformat_alloc_context();
    if (!context) {
        failWithErrno(error, ENOMEM, url.path() + " could not be opened");
        return nullptr;
    }
    context->interrupt_callback = {opening.isInterrupted, context};
    options.set("format_whitelist", opening.formats);
    options.set("codec_whitelist", kDecoders);
    options.set("protocol_whitelist", opening.protocols);
    options.set("max_streams", "64");
    // Else a picture of any length is read at one go, without asking whether to go on.
    options.set("blocksize", "1048576");
    // Frees the context itself when it fails.
    if (const int result = avformat_open_input(&context, opening.location.c_str(), opening.format, options.get());
        result < 0) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
             url.path() + " is no media file that can be read: " + textOfAVError(result));
        return nullptr;
    }
    return InputPtr(context);
}

} // namespace

void CloseInput::operator()(AVFormatContext* context) const
{
    avformat_close_input(&context);
}

void FreeCodec::operator()(AVCodecContext* context) const
{
    avcodec_free_context(&context);
}

void FreeFrame::operator()(AVFrame* frame) const
{
    av_frame_free(&frame);
}

void FreePacket::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

void FreeResampler::operator()(SwrContext* context) const
{
    swr_free(&context);
}

std::string textOfAVError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

bool failWithAVError(NSError* error, int code, const std::string& what)
{
    switch (code) {
    case AVERROR(ENOSPC):
    case AVERROR(EDQUOT):
        return fail(error, kAVFoundationErrorDomain, kAVErrorDiskFull, what + ": " + textOfAVError(code));
    case AVERROR_DECODER_NOT_FOUND:
        return fail(error, kAVFoundationErrorDomain, kAVErrorDecoderNotFound, what + ": " + textOfAVError(code));
    case AVERROR_INVALIDDATA:
    case AVERROR_EOF:
        return fail(error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse, what + ": " + textOfAVError(code));
    default:
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, what + ": " + textOfAVError(code));
    }
}

InputPtr openMediaFile(const NSURL& url, bool ignoreEditLists, NSError* error)
{
    Options options;
    if (ignoreEditLists)
        options.set("ignore_editlist", "1");
    InputPtr input = openInput(url, {.location = locationOf(url)}, options, error);
    if (!input)
        return nullptr;
    if (const int result = avformat_find_stream_info(input.get(), nullptr); result < 0) {
        failWithAVError(error, result, url.path() + " could not be read");
        return nullptr;
    }
    return input;
}

InputPtr openMediaHead(const NSURL& url)
{
    Options options;
    return openInput(url, {.location = locationOf(url), .format = formatOfMP3(url), .isInterrupted = hasReadTooMuch},
                     options, nullptr);
}

InputPtr openID3Tag(const NSURL& url, int64_t begin, int64_t end)
{
    Options options;
    const std::string part = "subfile,,start," + std::to_string(begin) + ",end," + std::to_string(end) + ",,:";
    // Samples without any head: a tag is read in front of whatever format, and this one asks for nothing behind it.
    constexpr const char* kFormat = "u8";
    return openInput(url,
                     {.location = part + locationOf(url),
                      .protocols = "file,subfile",
                      .formats = kFormat,
                      .format = av_find_input_format(kFormat),
                      .isInterrupted = hasReadTooMuch},
                     options, nullptr);
}

} // namespace platform
