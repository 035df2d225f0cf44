#pragma once

#include <string>

extern "C" {
struct _GDBusMessage;
}

namespace platform {

/// Why a message that GLib has let in is none (D-Bus Specification 0.41, "Message Protocol"). GLib cannot answer some
/// of these: a serial of 0 ends the process. Any thread.
/// @return a sentence's end; empty if nothing is wrong: then a call has a path and a member
std::string faultOfMessage(_GDBusMessage* message);

} // namespace platform
