#include "platform/movie/SequenceHeader.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// Headers of encoded pictures, and pictures behind them; the first byte tells whose, and which identifier they get.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    if (length == 0)
        return 0;
    const auto kind = bytes[0] % 2 == 0 ? SequenceHeaderKind::H264 : SequenceHeaderKind::HEVC;
    if (const auto header = headerWithoutTiming(kind, {bytes + 1, length - 1}))
        mustHold(headerWithoutTiming(kind, *header).has_value(), "what is written can be read");
    if (const auto identifiers = KeyFrameIdentifiers::ofHeader({bytes + 1, length - 1})) {
        std::vector<uint8_t> packet(bytes + 1, bytes + length);
        if (identifiers->set(packet, bytes[0])) {
            const std::vector<uint8_t> once = packet;
            mustHold(identifiers->set(packet, bytes[0]) && packet == once, "what is set is there");
        }
    }
    return 0;
}
