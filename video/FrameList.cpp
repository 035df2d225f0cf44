#include "video/FrameList.h"

#include <algorithm>
#include <chrono>
#include <utility>

void FrameList::append(FrameRecord record)
{
    {
        platform::LockGuard guard(lock_);
        records_.push_back(std::move(record));
        ++appends_;
    }
    appended_.notify_all();
}

size_t FrameList::count() const
{
    platform::LockGuard guard(lock_);
    return records_.size();
}

bool FrameList::contains(size_t index) const
{
    platform::LockGuard guard(lock_);
    return std::ranges::any_of(records_, [index](const FrameRecord& record) { return record.index == index; });
}

std::optional<FrameRecord> FrameList::take(size_t index)
{
    platform::LockGuard guard(lock_);
    const auto found = std::ranges::find(records_, index, &FrameRecord::index);
    if (found == records_.end())
        return std::nullopt;
    std::optional<FrameRecord> record(std::move(*found));
    records_.erase(found);
    return record;
}

uint64_t FrameList::waitForAppend(uint64_t seen, double seconds) const
{
    // A wait of a day is for ever, and keeps the sum below within its range.
    const auto wait = std::chrono::duration<double>(std::clamp(seconds, 0.0, 86400.0));
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(wait);
    platform::LockGuard guard(lock_);
    while (appends_ == seen && appended_.wait_until(lock_, deadline) != std::cv_status::timeout) {
    }
    return appends_;
}
