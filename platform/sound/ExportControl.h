#pragma once

#include <functional>

namespace platform {

struct ExportControl {
    /// Asked often.
    std::function<bool()> isCancelled;
    /// Told the part that is done, 0 to 1.
    std::function<void(double)> setProgress;
};

} // namespace platform
