#pragma once

#include <cstdint>
#include <istream>
#include <string_view>

namespace stillora {

/// The most memory that one of the processes which the calling thread has started has used until now, in bytes; 0 where
/// none runs, or the system does not tell.
int64_t peakBytesOfChildren();

/// Memory that programs can still take, in bytes; 0 where the system does not tell.
int64_t availableBytes();

/// The value of a line "NAME:  123 kB", as the system's tables have it, in bytes; 0 where there is none, or none that
/// can be.
int64_t bytesIn(std::istream& lines, std::string_view name);

} // namespace stillora
