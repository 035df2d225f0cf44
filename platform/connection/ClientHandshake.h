#pragma once

#include "platform/foundation/NSError.h"

#include <functional>

namespace platform {

/// Says who this process is to the service at the other end of a socket, as the D-Bus wire protocol has it, so that
/// messages may follow. Takes no more bytes from the peer than its answer may be long.
/// @param goesOn   asked every few hundredths of a second, on the calling thread; false ends the waiting
/// @return false if the peer refused, went away, answered as no service does or not in time
[[nodiscard]] bool greetService(int socket, const std::function<bool()>& goesOn, NSError* error = nullptr);

} // namespace platform
