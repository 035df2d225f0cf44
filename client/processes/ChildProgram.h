#pragma once

#include "platform/foundation/NSError.h"

#include <optional>
#include <string>

namespace stillora {

/// One of the programs that the library starts.
struct ChildProgram {
    /// "stillora-video-creator"
    const char* name;
    /// The environment variable that may name another one.
    const char* variable;
    /// The sentence that says where it was looked for in vain, and by which variable it may be named.
    std::string (*notFound)(const std::string& places, const char* variable);

    /// Where it is: what the variable names, else beside this program, else where the shared library or this project is
    /// installed.
    /// @return nothing if it is in none of these places; `error` names them
    [[nodiscard]] std::optional<std::string> find(platform::NSError* error = nullptr) const;
};

/// How a process ended, as part of a sentence: "with exit status 1", "by signal 9 (Killed)".
/// @param status  as waitpid gives it
std::string howItEnded(int status);

} // namespace stillora
