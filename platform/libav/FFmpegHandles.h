#pragma once

#include "platform/foundation/NSError.h"

#include <memory>
#include <string>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace platform {

struct FreeCodec {
    void operator()(AVCodecContext* context) const;
};
struct FreeFrame {
    void operator()(AVFrame* frame) const;
};
struct FreePacket {
    void operator()(AVPacket* packet) const;
};
struct FreeResampler {
    void operator()(SwrContext* context) const;
};

using CodecPtr = std::unique_ptr<AVCodecContext, FreeCodec>;
using FramePtr = std::unique_ptr<AVFrame, FreeFrame>;
using PacketPtr = std::unique_ptr<AVPacket, FreePacket>;
using ResamplerPtr = std::unique_ptr<SwrContext, FreeResampler>;

/// What went wrong, in the library's words.
std::string textOfAVError(int code);

/// An error of the AVFoundation domain for a library's error number; `what` names the file and the operation.
bool failWithAVError(NSError* error, int code, const std::string& what);

} // namespace platform
