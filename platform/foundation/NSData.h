#pragma once

#include <cstdint>
#include <vector>

namespace platform {

/// Plain bytes.
using NSData = std::vector<uint8_t>;

} // namespace platform
