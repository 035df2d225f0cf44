#pragma once

#include <cstdint>

namespace stillora {

/// The most memory that one of the processes which the calling thread has started has used until now, in bytes; 0 where
/// none runs, or the system does not tell.
int64_t peakBytesOfChildren();

/// Memory that programs can still take, in bytes; 0 where the system does not tell.
int64_t availableBytes();

} // namespace stillora
