#include "platform/dispatch/ThreadPool.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <sys/resource.h>
#include <system_error>
#include <thread>

namespace platform {

namespace {

using namespace std::chrono_literals;

constexpr auto kIdleLife = 10s;
/// After this long without a block begun, another thread is made.
constexpr auto kPatience = 20ms;
/// Where no thread can be made, nothing is begun and nobody computes for so long, nothing will be.
constexpr auto kLongestStandstill = 3s;

std::chrono::nanoseconds timeComputed()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The process from a moment on in which no thread could be made.
class Standstill final {
public:
    /// Its threads compute: looking whether they do takes less.
    bool isOver() const { return (timeComputed() - computed_) * 50 > std::chrono::steady_clock::now() - since_ + 1s; }
    bool lastsTooLong() const { return std::chrono::steady_clock::now() - since_ > kLongestStandstill; }

private:
    const std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
    const std::chrono::nanoseconds computed_ = timeComputed();
};

} // namespace

ThreadPool& ThreadPool::withNiceness(int niceness)
{
    niceness = std::clamp(niceness, 0, 19);
    struct Pools {
        Lock lock;
        std::map<int, ThreadPool*> byNiceness GUARDED_BY(lock);
    };
    // Never destroyed, nor are the pools: see there.
    static auto& pools = *new Pools;
    LockGuard guard(pools.lock);
    auto& pool = pools.byNiceness[niceness];
    if (!pool)
        pool = new ThreadPool(niceness);
    return *pool;
}

ThreadPool::ThreadPool(int niceness)
    : niceness_(niceness), processors_(std::max(1U, std::thread::hardware_concurrency()))
{
    // Made while a thread can be had: the need for one arises when that may be over.
    std::thread([this] { watch(); }).detach();
}

void ThreadPool::submit(std::move_only_function<void()> block)
{
    LockGuard guard(lock_);
    pending_.push_back(std::move(block));
    if (idle_ >= pending_.size()) {
        workAdded_.notify_one();
        return;
    }
    if (threads_ < processors_ && addThread())
        return;
    needsWatch_ = true;
    watchNeeded_.notify_one();
}

size_t ThreadPool::threadCount()
{
    LockGuard guard(lock_);
    return threads_;
}

bool ThreadPool::addThread()
{
    try {
        std::thread([this] { work(); }).detach();
        ++threads_;
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

void ThreadPool::work()
{
    // Of this thread alone, as the kernel has it.
    if (niceness_ > 0)
        setpriority(PRIO_PROCESS, 0, getpriority(PRIO_PROCESS, 0) + niceness_);
    lock_.lock();
    for (;;) {
        if (pending_.empty()) {
            ++idle_;
            const auto deadline = std::chrono::steady_clock::now() + kIdleLife;
            auto status = std::cv_status::no_timeout;
            while (pending_.empty() && status == std::cv_status::no_timeout)
                status = workAdded_.wait_until(lock_, deadline);
            --idle_;
            // The last one stays, as there may be no other later.
            if (pending_.empty() && threads_ > 1)
                break;
            if (pending_.empty())
                continue;
        }
        auto block = std::move(pending_.front());
        pending_.pop_front();
        ++begun_;
        lock_.unlock();
        block();
        // What the block holds goes before the next one starts, and outside the lock.
        block = nullptr;
        lock_.lock();
    }
    --threads_;
    lock_.unlock();
}

void ThreadPool::watch()
{
    lock_.lock();
    for (;;) {
        while (!needsWatch_)
            watchNeeded_.wait(lock_);
        watchUntilNoneWaits();
        needsWatch_ = false;
    }
}

void ThreadPool::watchUntilNoneWaits()
{
    std::optional<Standstill> standstill;
    while (!pending_.empty()) {
        const uint64_t begunThen = begun_;
        lock_.unlock();
        std::this_thread::sleep_for(kPatience);
        lock_.lock();
        if (pending_.empty() || begun_ != begunThen || addThread()) {
            standstill.reset();
        } else if (!standstill || standstill->isOver()) {
            standstill.emplace();
        } else if (standstill->lastsTooLong()) {
            throw std::system_error(EAGAIN, std::generic_category(), "no thread can be made");
        }
    }
}

} // namespace platform
