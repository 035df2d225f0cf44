#pragma once

#include <stillora/Error.h>

#include "platform/foundation/NSError.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace stillora {

/// Domain of the errors that the client library makes itself; their codes are those of `ErrorCode`.
inline constexpr std::string_view kClientErrorDomain = "StilloraClientErrorDomain";

/// As `platform::fail`, in the library's own domain.
bool fail(platform::NSError* error, ErrorCode code, std::string description);

/// An error as programs see it.
/// @param file  what it is about
Error errorOf(platform::NSError error, std::filesystem::path file = {});

} // namespace stillora
