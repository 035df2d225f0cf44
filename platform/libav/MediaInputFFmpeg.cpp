#include "platform/libav/MediaInput.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/ID3Head.h"
#include "platform/libav/LibavLog.h"
#include "platform/libav/WAVEnd.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace platform {
namespace {

// No format that names other files, and no decoder that no sound or movie of ours needs.
constexpr const char* kFormats = "aac,aiff,au,caf,flac,mov,mp3,ogg,w64,wav";
constexpr const char* kDecoders =
    "aac,adpcm_ima_qt,adpcm_ima_wav,adpcm_ms,alac,flac,mp2float,mp3float,opus,pcm_alaw,pcm_f32be,pcm_f32le,pcm_f64be,"
    "pcm_f64le,pcm_mulaw,pcm_s16be,pcm_s16le,pcm_s24be,pcm_s24le,pcm_s32be,pcm_s32le,pcm_s8,pcm_u8,vorbis";

constexpr int64_t kMaxHeadBytes = int64_t{64} << 20;
/// Those of any packet, and of what may stand in front of it.
constexpr int64_t kMostPacketBytes = int64_t{32} << 20;

/// What the library reads from: a part of a file.
struct Source {
    FileBytesPtr file;
    int64_t begin = 0;
    int64_t end = INT64_MAX;
    /// Bytes that may still be read; asked before each read.
    int64_t bytesLeft = INT64_MAX;
    int64_t position = begin;
};

int readSource(void* opaque, uint8_t* bytes, int count)
{
    auto& source = *static_cast<Source*>(opaque);
    if (source.bytesLeft < 0)
        return AVERROR_EXIT;
    // Else a picture of any length is read at one go, without asking whether to go on.
    constexpr int64_t kMostAtOnce = 1 << 20;
    const int64_t wanted = std::min({int64_t{count}, kMostAtOnce, source.end - source.position});
    if (wanted <= 0)
        return AVERROR_EOF;
    const ssize_t got = source.file->readSome(source.position, {bytes, static_cast<size_t>(wanted)});
    if (got < 0)
        return AVERROR(errno);
    source.position += got;
    source.bytesLeft -= got;
    return got > 0 ? static_cast<int>(got) : AVERROR_EOF;
}

int64_t seekSource(void* opaque, int64_t offset, int whence)
{
    auto& source = *static_cast<Source*>(opaque);
    if (whence == AVSEEK_SIZE)
        return std::min(source.file->size(), source.end) - source.begin;
    if (whence != SEEK_SET || offset < 0 || offset > INT64_MAX - source.begin)
        return AVERROR(EINVAL);
    source.position = source.begin + offset;
    return offset;
}

void allowBytes(AVFormatContext& input, int64_t count)
{
    static_cast<Source*>(input.pb->opaque)->bytesLeft = count;
}

struct CloseSource {
    void operator()(AVIOContext* context) const
    {
        delete static_cast<Source*>(context->opaque);
        av_freep(&context->buffer);
        avio_context_free(&context);
    }
};
using SourcePtr = std::unique_ptr<AVIOContext, CloseSource>;

SourcePtr openSource(Source source)
{
    constexpr int kBufferSize = 32768;
    auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    auto opaque = std::make_unique<Source>(std::move(source));
    SourcePtr context(avio_alloc_context(buffer, kBufferSize, 0, opaque.get(), readSource, nullptr, seekSource));
    if (!context)
        av_free(buffer);
    else
        (void)opaque.release();
    return context;
}

/// How to open a file.
struct Opening {
    const char* formats = kFormats;
    /// Null where the library is to find out.
    const AVInputFormat* format = nullptr;
    bool ignoresEditLists = false;
    const char* failure = translatable("{} is no media file that can be read: {}");
};

FileBytesPtr openFile(const NSURL& url, NSError* error)
{
    // A pipe or device would be waited for.
    struct stat status {};
    if (stat(url.path().c_str(), &status) != 0) {
        failWithErrno(error, errno, localized("{} could not be opened", {url.path()}));
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
             localized("{} is no regular file", {url.path()}));
        return nullptr;
    }
    auto file = std::make_shared<const FileBytes>(url.path());
    if (file->isOpen())
        return file;
    fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
         localized(Opening{}.failure, {url.path(), textOfAVError(AVERROR(errno))}));
    return nullptr;
}

/// The library looks for the format of sound behind a tag in ever longer pieces of it, with each format that it knows.
/// This takes twenty times as long as reading the tag, so MP3 is told here; null for other formats.
const AVInputFormat* formatOfMP3(const FileBytes& file)
{
    std::array<uint8_t, 2> start{};
    const bool isLayer3 = file.read(endOfID3Tags(file), start) && start[0] == 0xFF && (start[1] & 0xE6) == 0xE2;
    return isLayer3 ? av_find_input_format("mp3") : nullptr;
}

InputPtr openInput(Source part, const std::string& path, const Opening& opening, NSError* error)
{
    silenceLibavLog();
    SourcePtr source = openSource(std::move(part));
    AVFormatContext* context = source ? avformat_alloc_context() : nullptr;
    if (!context) {
        failWithErrno(error, ENOMEM, localized("{} could not be opened", {path}));
        return nullptr;
    }
    context->pb = source.get();
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", opening.formats, 0);
    av_dict_set(&options, "codec_whitelist", kDecoders, 0);
    // Nothing but what is open.
    av_dict_set(&options, "protocol_whitelist", "", 0);
    av_dict_set(&options, "max_streams", "64", 0);
    if (opening.ignoresEditLists)
        av_dict_set(&options, "ignore_editlist", "1", 0);
    // Spelled out, so that no part of the path is taken for a protocol. Frees the context itself when it fails.
    const std::string location = "file:" + path;
    const int result = avformat_open_input(&context, location.c_str(), opening.format, &options);
    av_dict_free(&options);
    if (result < 0) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
             localized(opening.failure, {path, textOfAVError(result)}));
        return nullptr;
    }
    (void)source.release();
    return InputPtr(context);
}

} // namespace

void CloseInput::operator()(AVFormatContext* context) const
{
    const SourcePtr source(context->pb);
    avformat_close_input(&context);
}

const FileBytesPtr& bytesOf(const AVFormatContext& input)
{
    return static_cast<const Source*>(input.pb->opaque)->file;
}

int readPacket(AVFormatContext& input, AVPacket& packet)
{
    allowBytes(input, kMostPacketBytes);
    return av_read_frame(&input, &packet);
}

InputPtr openMediaFile(FileBytesPtr file, const NSURL& url, bool ignoreEditLists, NSError* error)
{
    const int64_t end = endOfWAVFile(*file);
    InputPtr input =
        openInput({.file = std::move(file), .end = end}, url.path(), {.ignoresEditLists = ignoreEditLists}, error);
    if (!input)
        return nullptr;
    // It reads some packets, each of which may be looked for to the end of the file.
    allowBytes(*input, kMostPacketBytes);
    const int result = avformat_find_stream_info(input.get(), nullptr);
    allowBytes(*input, INT64_MAX);
    if (result < 0) {
        failWithAVError(error, result, localized("{} could not be read", {url.path()}));
        return nullptr;
    }
    return input;
}

InputPtr openMediaFile(const NSURL& url, bool ignoreEditLists, NSError* error)
{
    FileBytesPtr file = openFile(url, error);
    return file ? openMediaFile(std::move(file), url, ignoreEditLists, error) : nullptr;
}

InputPtr openMediaHead(const NSURL& url, FileBytesPtr opened)
{
    FileBytesPtr file = opened ? std::move(opened) : openFile(url, nullptr);
    if (!file)
        return nullptr;
    const AVInputFormat* const format = formatOfMP3(*file);
    const int64_t end = endOfWAVFile(*file);
    return openInput({.file = std::move(file), .end = end, .bytesLeft = kMaxHeadBytes}, url.path(), {.format = format},
                     nullptr);
}

InputPtr openID3Tag(const AVFormatContext& file, int64_t begin, int64_t end)
{
    // Samples without any head: a tag is read in front of whatever format, and this one asks for nothing behind it.
    constexpr const char* kFormat = "u8";
    return openInput({.file = bytesOf(file), .begin = begin, .end = end, .bytesLeft = kMaxHeadBytes}, "the tag",
                     {.formats = kFormat, .format = av_find_input_format(kFormat)}, nullptr);
}

InputPtr openMovieIndex(FileBytesPtr file, const NSURL& url, NSError* error)
{
    InputPtr input =
        openInput({.file = std::move(file)}, url.path(),
                  {.formats = "mov", .failure = translatable("{} is no movie that can be read: {}")}, error);
    if (input)
        input->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    return input;
}

} // namespace platform
