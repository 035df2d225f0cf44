#pragma once

namespace platform {

/// Keeps libav from writing its remarks on odd files to standard error, in all of the process, whatever another library
/// sets: what fails is reported by us. Called before its first use; any thread, any number of times.
void silenceLibavLog();

} // namespace platform
