#include "client/SharedLibraryPrefix.h"

#include <filesystem>
#include <system_error>

#include <dlfcn.h>

// From the library's folder to the prefix.
#ifndef STILLORA_LIBRARY_TO_PREFIX
#define STILLORA_LIBRARY_TO_PREFIX ".."
#endif

std::optional<std::string> sharedLibraryPrefix()
{
    Dl_info place = {};
    if (dladdr(reinterpret_cast<const void*>(&sharedLibraryPrefix), &place) == 0 || !place.dli_fname)
        return std::nullopt;
    std::error_code failure;
    const auto library = std::filesystem::canonical(place.dli_fname, failure);
    if (failure)
        return std::nullopt;
    const auto program = std::filesystem::canonical("/proc/self/exe", failure);
    if (failure || library == program)
        return std::nullopt;
    return (library.parent_path() / STILLORA_LIBRARY_TO_PREFIX).lexically_normal().native();
}
