#include "platform/libav/FFmpegHandles.h"

#include "platform/foundation/LocalizedText.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

#include <cerrno>
#include <string>

namespace platform {

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
    // What users meet; the library's other texts are told in English.
    [[maybe_unused]] static constexpr const char* kTexts[] = {
        translatable("Decoder not found"), translatable("Encoder not found"), translatable("End of file"),
        translatable("Invalid data found when processing input"),
        translatable("Not yet implemented in FFmpeg, patches welcome")};
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return localized(text);
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

} // namespace platform
