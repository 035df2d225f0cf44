#include "window/state/document/EditHistory.h"

#include <utility>

namespace stillora::window {

EditHistory::EditHistory(Arrangement first)
{
    steps_.push_back({std::move(first), {}, {}});
}

bool EditHistory::add(Arrangement arrangement, std::string label, std::string handle)
{
    if (arrangement.isSameAs(present()))
        return false;
    steps_.erase(steps_.begin() + static_cast<std::ptrdiff_t>(present_) + 1, steps_.end());
    if (!handle.empty() && steps_[present_].handle == handle) {
        steps_[present_].arrangement = std::move(arrangement);
        return true;
    }
    steps_.push_back({std::move(arrangement), std::move(label), std::move(handle)});
    ++present_;
    return true;
}

} // namespace stillora::window
