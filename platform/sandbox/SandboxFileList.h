#pragma once

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSError.h"
#include "platform/sandbox/Sandbox.h"

#include <optional>

namespace platform {

/// Names the files for a process that is to be started, in memory that nobody can change any more.
/// @return a descriptor to hand on, closed when a program is run; empty on failure, with `error` saying why
[[nodiscard]] FileDescriptor writeSandboxFiles(const SandboxFiles& files, NSError* error = nullptr);

/// Reads what `writeSandboxFiles` wrote, from its beginning, wherever another reader of the descriptor is.
/// @param descriptor  stays open
/// @return nothing if it is no such list
[[nodiscard]] std::optional<SandboxFiles> readSandboxFiles(int descriptor, NSError* error = nullptr);

} // namespace platform
