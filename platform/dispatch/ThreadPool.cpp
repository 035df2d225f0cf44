#include "platform/dispatch/ThreadPool.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace platform {

namespace {

using namespace std::chrono_literals;

constexpr auto kIdleLife = 10s;
/// Between two looks at threads that are too busy to take what waits.
constexpr auto kWatchInterval = 2ms;
/// After this long without a block begun, another thread is made however busy the others are: some blocks spin.
constexpr auto kPatience = 20ms;

pid_t currentThreadId()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

/// Whether the kernel would run the thread: neither asleep nor waiting for a disk. A thread whose state cannot be
/// read counts as blocked, so that work goes on at the cost of threads.
bool isRunnable(pid_t thread)
{
    const auto path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    std::array<char, 256> text{};
    const auto length = read(file, text.data(), text.size());
    close(file);
    if (length <= 0)
        return false;
    // The name is in brackets and may hold brackets itself.
    const std::string_view stat(text.data(), static_cast<size_t>(length));
    const auto end = stat.rfind(')');
    return end != std::string_view::npos && end + 2 < stat.size() && stat[end + 2] == 'R';
}

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
    if (threads_.size() + starting_ < processors_ && addThread())
        return;
    if (!watching_) {
        try {
            std::thread([this] { watch(); }).detach();
            watching_ = true;
        } catch (const std::system_error&) {
            // No thread to watch with: what waits is taken when a worker is done, and the next submit tries again.
        }
    }
    workWaits_.notify_one();
}

size_t ThreadPool::threadCount()
{
    LockGuard guard(lock_);
    return threads_.size() + starting_;
}

bool ThreadPool::addThread()
{
    try {
        std::thread([this] { work(); }).detach();
        ++starting_;
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

size_t ThreadPool::runningThreads() const
{
    return starting_ + static_cast<size_t>(std::ranges::count_if(threads_, isRunnable));
}

void ThreadPool::work()
{
    const auto thread = currentThreadId();
    if (niceness_ > 0) {
        const auto who = static_cast<id_t>(thread);
        setpriority(PRIO_PROCESS, who, getpriority(PRIO_PROCESS, who) + niceness_);
    }
    lock_.lock();
    --starting_;
    threads_.insert(thread);
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
    threads_.erase(thread);
    lock_.unlock();
}

void ThreadPool::watch()
{
    lock_.lock();
    auto idleDeadline = std::chrono::steady_clock::now() + kIdleLife;
    auto lastProgress = std::chrono::steady_clock::now();
    uint64_t begunThen = begun_;
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        if (pending_.size() > idle_) {
            if (begun_ != begunThen) {
                begunThen = begun_;
                lastProgress = now;
            }
            if ((runningThreads() < processors_ || now - lastProgress > kPatience) && addThread())
                lastProgress = now;
            idleDeadline = now + kIdleLife;
            workWaits_.wait_for(lock_, kWatchInterval);
            continue;
        }
        lastProgress = now;
        if (workWaits_.wait_until(lock_, idleDeadline) == std::cv_status::timeout && pending_.size() <= idle_)
            break;
    }
    watching_ = false;
    lock_.unlock();
}

} // namespace platform
