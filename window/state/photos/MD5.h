#pragma once

#include <string>
#include <string_view>

namespace stillora::window {

/// The MD5 sum of some bytes, as 32 hexadecimal digits. For names alone: it keeps nothing secret.
std::string md5Of(std::string_view bytes);

} // namespace stillora::window
