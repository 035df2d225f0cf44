#pragma once

#include "platform/foundation/NSError.h"

#include <optional>

/// Takes from this process what making movies does not need; the log tells what the kernel cannot take away. At the
/// start of main, while there is one thread.
///
/// @param fileList  the descriptor of the list of all files that the service is to work on, which is closed; it then
/// makes
///                  no connections either, but for one to the system bus, which it makes here. Nothing leaves it the
///                  user's files and sockets of this machine: its clients will tell which they mean.
/// @return false if the list cannot be read
[[nodiscard]] bool confineService(std::optional<int> fileList, platform::NSError* error = nullptr);
