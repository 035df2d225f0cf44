#include "platform/dispatch/ThreadPool.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <sys/resource.h>
#include <system_error>
#include <thread>

namespace platform {

namespace {

using namespace std::chrono_literals;

constexpr auto kIdleLife = 10s;
/// After this long without a block begun, another thread is made.
constexpr auto kPatience = 20ms;

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
{}

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
    if (!watching_) {
        try {
            std::thread([this] { watch(); }).detach();
            watching_ = true;
        } catch (const std::system_error&) {
            // No thread to watch with: what waits is taken when a worker is done, and the next submit tries again.
        }
    }
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
            if (pending_.empty())
                break;
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
    while (!pending_.empty()) {
        const uint64_t begunThen = begun_;
        lock_.unlock();
        std::this_thread::sleep_for(kPatience);
        lock_.lock();
        if (!pending_.empty() && begun_ == begunThen)
            addThread();
    }
    watching_ = false;
    lock_.unlock();
}

} // namespace platform
