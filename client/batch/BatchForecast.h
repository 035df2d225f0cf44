#pragma once

#include <stillora/Types.h>

#include <cstddef>
#include <deque>
#include <optional>

namespace stillora {

/// How long a batch still takes, by how quickly its movies were made. Knows no clock of its own: `elapsed` is the time
/// since the start, and never less than in the call before. One thread.
class BatchForecast final {
public:
    /// How a line has come to its end.
    enum class End {
        /// It had no receipt: its movie was made, or could not be.
        First,
        /// It had one, and its movie was made again.
        Again,
        /// It had one, and nothing was to be done.
        Kept,
    };

    /// @param first  lines without a receipt
    /// @param known  lines with one: most take no time, as a rule
    BatchForecast(size_t first, size_t known) : first_(first), known_(known) {}

    void ended(End end, Seconds elapsed);

    /// @param running  movies that are being made, each counted as far as it is
    /// @return nothing while too few have come to their end to tell
    std::optional<Seconds> left(double running, Seconds elapsed);

private:
    /// What was done at a time.
    struct Mark {
        double work = 0;
        Seconds elapsed{0};
    };

    /// Movies that are still to be made, those that are begun included.
    double ahead() const;

    const size_t first_;
    const size_t known_;
    size_t firstEnded_ = 0;
    size_t againEnded_ = 0;
    size_t keptEnded_ = 0;
    double running_ = 0;
    /// At the start, and after each movie of those that count.
    std::deque<Mark> marks_{Mark{}};
};

} // namespace stillora
