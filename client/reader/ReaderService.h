#pragma once

#include <string_view>

namespace stillora {

/// The program's side of the channels: each has a thread of its own, which answers one question after the other.
class ReaderService final {
public:
    /// Says its version, and takes channels from the control descriptor until the other side closes it, and then
    /// returns while threads may still be at work.
    /// @return false where there is no such descriptor
    static bool run(std::string_view version);
};

} // namespace stillora
