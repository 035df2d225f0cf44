#pragma once

#include "platform/sandbox/Sandbox.h"

#include <optional>

namespace platform::FileView {

/// Since then files may be moved between folders that are given.
inline constexpr int kFirstVersion = 2;

/// The version of the kernel's Landlock; 0 where it has none or it is switched off.
int landlockVersion();

/// Puts everything but `files` and what any program reads out of this thread's reach, and with it the network, signals
/// to processes outside and, without sockets of this machine, those that have no path; of these, what version `version`
/// knows. New privileges have to be given up before.
/// @return false on failure, with `errno` set
[[nodiscard]] bool restrictTo(const std::optional<SandboxFiles>& files, SandboxSockets sockets, int version);

} // namespace platform::FileView
