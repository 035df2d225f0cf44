#include "platform/writer/AVAssetWriterEncoder.h"

#include "platform/foundation/NSGeometry.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <string>

extern "C" {
#include <libavcodec/codec_par.h>
}

namespace platform {

namespace {

constexpr int kMaxSide = 16384;

/// Even, as all codecs but JPEG halve the chroma; nothing else is sent here.
std::optional<int> side(double value)
{
    if (!(value >= 2) || value > kMaxSide || std::fmod(value, 2) != 0)
        return std::nullopt;
    return static_cast<int>(value);
}

std::span<const uint8_t> header(const AVCodecParameters& parameters)
{
    return {parameters.extradata, static_cast<size_t>(parameters.extradata_size)};
}

} // namespace

bool AVAssetWriterEncoder::isAlike(const AVAssetWriterEncoder& other) const
{
    return std::ranges::equal(header(parameters()), header(other.parameters()));
}

std::unique_ptr<AVAssetWriterEncoder> AVAssetWriterEncoder::create(const AVVideoSettings& settings, NSError* error)
{
    const auto width = side(settings.width);
    const auto height = side(settings.height);
    if (!width || !height) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
             "a video cannot have the size " + NSStringFromSize({settings.width, settings.height}));
        return nullptr;
    }
    if (settings.codec == kAVVideoCodecJPEG)
        return makeTurboJPEGEncoder(*width, *height, error);
    return makeFFmpegEncoder(settings, *width, *height, error);
}

} // namespace platform
