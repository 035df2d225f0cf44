#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// A kind of library that is loaded when it is needed. Its one symbol is a table of functions behind a version, which
/// is a `uint32_t`.
struct ModuleKind {
    /// For messages: "face detector".
    const char* name;
    const char* symbol;
    uint32_t version;
};

/// Loads a module, which stays for the life of the process. Any thread.
/// @param reason  out: one sentence that names the file; set on failure
/// @return the symbol; null on failure
const void* loadModule(const ModuleKind& kind, const std::string& path, std::string& reason);

} // namespace platform
