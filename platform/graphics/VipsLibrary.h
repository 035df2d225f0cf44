#pragma once

namespace platform {

/// A function of libvips by its name; null if the library or the function is missing. The library is loaded at first
/// use: linked in, it and the hundred libraries that it brings would cost every start of a program 20 ms, pictures or
/// not. Any thread.
void* vipsFunction(const char* name);

/// Makes the library ready to be used, once, as it loads modules that a service without such pictures never needs: a
/// single thread, no cache, nothing but the parts that are fit for files of strangers.
/// @return false if it does not start
bool startVips();

} // namespace platform
