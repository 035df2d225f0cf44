#include "platform/media/FFmpegHandles.h"

#include "platform/graphics/LibavLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

#include <cerrno>
#include <sys/stat.h>

namespace platform {
namespace {

// No format that names other files, and no decoder that no sound or movie of ours needs.
constexpr const char* kFormats = "aac,aiff,au,caf,flac,mov,mp3,ogg,w64,wav";
constexpr const char* kDecoders =
    "aac,adpcm_ima_qt,adpcm_ima_wav,adpcm_ms,alac,flac,mp2float,mp3float,opus,pcm_alaw,pcm_f32be,pcm_f32le,pcm_f64be,"
    "pcm_f64le,pcm_mulaw,pcm_s16be,pcm_s16le,pcm_s24be,pcm_s24le,pcm_s32be,pcm_s32le,pcm_s8,pcm_u8,vorbis";
constexpr const char* kProtocols = "file";

class Options final {
public:
    ~Options() { av_dict_free(&dictionary_); }
    void set(const char* key, const char* value) { av_dict_set(&dictionary_, key, value, 0); }
    AVDictionary** get() { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

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

void silenceLibraries()
{
    silenceLibavLog();
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
    silenceLibraries();

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
    Options options;
    options.set("format_whitelist", kFormats);
    options.set("codec_whitelist", kDecoders);
    options.set("protocol_whitelist", kProtocols);
    options.set("max_streams", "64");
    if (ignoreEditLists)
        options.set("ignore_editlist", "1");
    // Spelled out, so that no part of the path is taken for a protocol.
    const std::string location = "file:" + url.path();
    // Frees the context itself when it fails.
    if (const int result = avformat_open_input(&context, location.c_str(), nullptr, options.get()); result < 0) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
             url.path() + " is no media file that can be read: " + textOfAVError(result));
        return nullptr;
    }
    InputPtr input(context);
    if (const int result = avformat_find_stream_info(input.get(), nullptr); result < 0) {
        failWithAVError(error, result, url.path() + " could not be read");
        return nullptr;
    }
    return input;
}

} // namespace platform
