#pragma once

namespace platform {

/// Lets what ends this process (memory that is not to be had, a thread that cannot be made, an error that a library
/// holds to be fatal, a system that lets GLib wait for nothing for some seconds) end it with a line on standard error
/// and the exit status 1, in place of a signal. For the first lines of a main function.
/// @param program  what the line begins with; kept
void endPlainlyOnFatalErrors(const char* program);

/// Ends the process as endPlainlyOnFatalErrors() says. Takes no memory; of any thread.
/// @param reason  what the line ends with
[[noreturn]] void endPlainly(const char* reason);

} // namespace platform
