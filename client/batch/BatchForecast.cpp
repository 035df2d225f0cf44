#include "client/batch/BatchForecast.h"

#include <algorithm>

namespace stillora {

namespace {

/// With less behind it nothing is told.
constexpr size_t kLeastEnded = 3;
/// Machines are not always as busy, and so the last ones count: enough of them that one long movie is no surprise.
constexpr size_t kLeastMarks = 100;

} // namespace

void BatchForecast::ended(End end, Seconds elapsed)
{
    if (end == End::Kept) {
        ++keptEnded_;
        return;
    }
    ++(end == End::First ? firstEnded_ : againEnded_);
    const size_t made = firstEnded_ + againEnded_;
    // One less is running than when it was asked last.
    running_ = std::max(0.0, running_ - 1);
    marks_.push_back({static_cast<double>(made) + running_, elapsed});
    while (marks_.size() > std::max(kLeastMarks, made / 2) + 1)
        marks_.pop_front();
}

double BatchForecast::ahead() const
{
    const auto left = [](size_t all, size_t ended) { return static_cast<double>(std::max(all, ended) - ended); };
    const size_t seen = againEnded_ + keptEnded_;
    // As many of those that are left as of those that were seen.
    const double again =
        seen == 0 ? 0 : left(known_, seen) * static_cast<double>(againEnded_) / static_cast<double>(seen);
    return left(first_, firstEnded_) + again;
}

std::optional<Seconds> BatchForecast::left(double running, Seconds elapsed)
{
    running_ = running;
    const size_t made = firstEnded_ + againEnded_;
    if (made < kLeastEnded)
        return std::nullopt;
    const Mark& from = marks_.front();
    const double work = static_cast<double>(made) + running - from.work;
    if (work <= 0)
        return std::nullopt;
    return (elapsed - from.elapsed) * (std::max(0.0, ahead() - running) / work);
}

} // namespace stillora
