#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace platform {

/// Writes one line to the system log: the journal where standard error is connected to it, else standard error.
/// Line ends inside the text are escaped, so that one call is one line. Any thread.
void NSLog(std::string_view line);

/// NSLog of "%s - %@": an operation's full name and a short message.
void logFailure(std::string_view operation, std::string_view message);

/// Sends every line to `sink` instead, until called with none. For tests and for programs with a log of their own.
void setLogSink(std::function<void(const std::string& line)> sink);

} // namespace platform
