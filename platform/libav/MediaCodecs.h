#pragma once

#include <string>

namespace platform {

/// @name Whether the linked library has an encoder, or a decoder, of this name of its own
/// @{
bool hasEncoder(const std::string& name);
bool hasDecoder(const std::string& name);
/// @}

} // namespace platform
