#include "platform/movie/SequenceHeader.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// Headers of encoded pictures; the first byte tells whose.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    if (length == 0)
        return 0;
    const auto kind = bytes[0] % 2 == 0 ? SequenceHeaderKind::H264 : SequenceHeaderKind::HEVC;
    if (const auto header = headerWithoutTiming(kind, {bytes + 1, length - 1}))
        mustHold(headerWithoutTiming(kind, *header).has_value(), "what is written can be read");
    return 0;
}
