#include "platform/libav/MediaCodecs.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace platform {

bool hasEncoder(const std::string& name)
{
    return avcodec_find_encoder_by_name(name.c_str()) != nullptr;
}

bool hasDecoder(const std::string& name)
{
    return avcodec_find_decoder_by_name(name.c_str()) != nullptr;
}

} // namespace platform
