#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"

#include <optional>
#include <string>

namespace stillora {

/// "NAME", "NAME-2", "NAME-3" and so on.
/// @param number  counted from 1
[[nodiscard]] std::string numberedName(const std::string& name, int number);

/// Moves a file into a folder under its name with the first number that is free. Nothing is replaced, whoever takes a
/// name meanwhile; a link that leads nowhere has taken its own.
///
/// @param error  out, optional: why it is still where it was
[[nodiscard]] std::optional<platform::NSURL> moveToFreeName(const platform::NSURL& file, const platform::NSURL& folder,
                                                            const std::string& name, const std::string& extension,
                                                            platform::NSError* error = nullptr);

} // namespace stillora
