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

#define STILLORA_VIPS_DECLARE(name) decltype(&vips_##name) name = nullptr;
#define STILLORA_VIPS_LOOK_UP(name)                                                                                    \
    name = reinterpret_cast<decltype(name)>(platform::vipsFunction("vips_" #name));                                    \
    isComplete = isComplete && name;

/// Makes `vips()`, a table of the functions that `FUNCTIONS(X)` lists as X(name), named without "vips_". It is filled
/// at its first use; `isComplete` tells whether the library started and has them all.
#define STILLORA_VIPS_TABLE(FUNCTIONS)                                                                                 \
    struct Vips {                                                                                                      \
        FUNCTIONS(STILLORA_VIPS_DECLARE)                                                                               \
        bool isComplete = platform::startVips();                                                                       \
        Vips() { FUNCTIONS(STILLORA_VIPS_LOOK_UP) }                                                                    \
    };                                                                                                                 \
    const Vips& vips()                                                                                                 \
    {                                                                                                                  \
        static const Vips library;                                                                                     \
        return library;                                                                                                \
    }

} // namespace platform
