#pragma once

#include <cstdint>

namespace platform {

/// How many of so many packets are encoded in one go. By their number alone, so that the result is the same on every
/// machine; the parts are as long as each other and their number suits the usual numbers of processors.
int64_t packetsInPart(int64_t packets);

} // namespace platform
