#include "platform/aac/AACParts.h"

#include <algorithm>

namespace platform {
namespace {

/// Fewer waste time on starting, more waste memory.
constexpr int64_t kSmallestPart = 512;
constexpr int64_t kLargestPart = 2048;

} // namespace

int64_t packetsInPart(int64_t packets)
{
    constexpr int64_t kProcessors = 4;
    int64_t parts = (packets + kLargestPart - 1) / kLargestPart;
    parts = (parts + kProcessors - 1) / kProcessors * kProcessors;
    parts = std::clamp<int64_t>(packets / kSmallestPart, 1, parts);
    return (packets + parts - 1) / parts;
}

} // namespace platform
