#pragma once

#include "platform/sandbox/Sandbox.h"

namespace platform::CallFilter {

/// Whether the kernel can refuse system calls for a process that asks for it.
bool isPossible();

/// Refuses this thread, and those that it makes, every system call but those that reading, computing and writing of
/// files take. New privileges have to be given up before.
/// @return 0, or why not, as an `errno` value
[[nodiscard]] int install(SandboxSockets sockets);

} // namespace platform::CallFilter
