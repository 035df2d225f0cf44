#pragma once

#include <cstddef>

namespace platform {

/// Lets what ends this process (memory that is not to be had, a thread that cannot be made, an error that a library
/// holds to be fatal, a system that lets GLib wait for nothing for some seconds) end it with a line on standard error
/// and the exit status 1, in place of a signal. For the first lines of a main function.
/// @param program  what the line begins with; kept
///
/// A program that is built with the object library small_blocks ends that way too where the C library has none of the
/// small blocks left (of kLargestSmallBlock bytes) that other libraries take for granted.
void endPlainlyOnFatalErrors(const char* program);

/// Ends the process as endPlainlyOnFatalErrors() says. Takes no memory; of any thread.
/// @param reason  what the line ends with
[[noreturn]] void endPlainly(const char* reason);

/// In bytes: what libraries keep their own structures in. Larger ones hold pictures, sounds and files, and who asks for
/// them looks whether they are to be had.
inline constexpr size_t kLargestSmallBlock = 64 << 10;

} // namespace platform
