#pragma once

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace platform {

struct CloseInput {
    void operator()(AVFormatContext* context) const;
};
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

using InputPtr = std::unique_ptr<AVFormatContext, CloseInput>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeCodec>;
using FramePtr = std::unique_ptr<AVFrame, FreeFrame>;
using PacketPtr = std::unique_ptr<AVPacket, FreePacket>;
using ResamplerPtr = std::unique_ptr<SwrContext, FreeResampler>;

/// What went wrong, in the library's words.
std::string textOfAVError(int code);

/// An error of the AVFoundation domain for a library's error number; `what` names the file and the operation.
bool failWithAVError(NSError* error, int code, const std::string& what);

/// Opens a media file that may be hostile: regular files only, of a short list of formats, reading nothing but the file
/// itself, with a short list of decoders. Its streams are known; edit lists of movies are not applied when
/// `ignoreEditLists` is set.
/// @return null if it cannot be opened; `error` names the file and why
[[nodiscard]] InputPtr openMediaFile(const NSURL& url, bool ignoreEditLists, NSError* error = nullptr);

/// As `openMediaFile`, but knows no more than the file's head and index tell, and gives up where they are longer than
/// those of any sound, at 64 MB. Decodes nothing.
InputPtr openMediaHead(const NSURL& url);

/// Opens an ID3 tag that stands from `begin` to `end` in a file of another kind; only its texts are known.
/// @return null if it cannot be opened
InputPtr openID3Tag(const NSURL& url, int64_t begin, int64_t end);

} // namespace platform
