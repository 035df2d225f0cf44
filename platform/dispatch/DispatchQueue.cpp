#include "platform/dispatch/DispatchQueue.h"

#include "platform/dispatch/ThreadPool.h"
#include "platform/foundation/Lock.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <semaphore>
#include <utility>

namespace platform {

namespace {

/// The queues whose blocks the thread is running, innermost first.
struct Running {
    const DispatchQueue* queue;
    const Running* outer;
};
thread_local const Running* running = nullptr;

bool isRunning(const DispatchQueue& queue)
{
    for (auto* entry = running; entry; entry = entry->outer) {
        if (entry->queue == &queue)
            return true;
    }
    return false;
}

void run(const DispatchQueue& queue, std::move_only_function<void()> block)
{
    const Running entry{&queue, running};
    running = &entry;
    block();
    // What the block holds may end on its queue too.
    block = nullptr;
    running = entry.outer;
}

class ConcurrentQueue final : public DispatchQueue, public std::enable_shared_from_this<ConcurrentQueue> {
public:
    ConcurrentQueue(std::string label, Attributes attributes) : DispatchQueue(std::move(label), attributes) {}

    void async(std::move_only_function<void()> block) override
    {
        ThreadPool::withNiceness(attributes().niceness)
            .submit([self = shared_from_this(), block = std::move(block)]() mutable { run(*self, std::move(block)); });
    }

    bool isCurrent() const override { return isRunning(*this); }
};

class SerialQueue final : public DispatchQueue, public std::enable_shared_from_this<SerialQueue> {
public:
    SerialQueue(std::string label, Attributes attributes) : DispatchQueue(std::move(label), attributes) {}

    void async(std::move_only_function<void()> block) override
    {
        {
            LockGuard guard(lock_);
            blocks_.push_back(std::move(block));
            if (draining_)
                return;
            draining_ = true;
        }
        ThreadPool::withNiceness(attributes().niceness).submit([self = shared_from_this()] { self->drain(); });
    }

    bool isCurrent() const override { return isRunning(*this); }

private:
    void drain()
    {
        for (;;) {
            std::move_only_function<void()> block;
            {
                LockGuard guard(lock_);
                if (blocks_.empty()) {
                    draining_ = false;
                    return;
                }
                block = std::move(blocks_.front());
                blocks_.pop_front();
            }
            run(*this, std::move(block));
        }
    }

    Lock lock_;
    std::deque<std::move_only_function<void()>> blocks_ GUARDED_BY(lock_);
    bool draining_ GUARDED_BY(lock_) = false;
};

class MainQueue final : public DispatchQueue {
public:
    MainQueue() : DispatchQueue("main", {}) {}

    void async(std::move_only_function<void()> block) override
    {
        LockGuard guard(lock_);
        blocks_.push_back(std::move(block));
        changed_.notify_all();
    }

    bool isCurrent() const override { return isRunning(*this); }

    void runUntilStopped()
    {
        for (;;) {
            std::move_only_function<void()> block;
            lock_.lock();
            while (!stopped_ && blocks_.empty())
                changed_.wait(lock_);
            const bool stopped = std::exchange(stopped_, false);
            if (!stopped) {
                block = std::move(blocks_.front());
                blocks_.pop_front();
            }
            lock_.unlock();
            if (stopped)
                return;
            run(*this, std::move(block));
        }
    }

    void stop()
    {
        LockGuard guard(lock_);
        stopped_ = true;
        changed_.notify_all();
    }

    bool runUntil(const std::function<bool()>& done, std::chrono::steady_clock::time_point deadline)
    {
        using namespace std::chrono_literals;
        while (!done()) {
            std::move_only_function<void()> block;
            const auto now = std::chrono::steady_clock::now();
            if (now >= deadline)
                return false;
            lock_.lock();
            // What is waited for may come true without a block of this queue.
            if (blocks_.empty())
                changed_.wait_until(lock_, std::min(deadline, now + 5ms));
            if (!blocks_.empty()) {
                block = std::move(blocks_.front());
                blocks_.pop_front();
            }
            lock_.unlock();
            if (block)
                run(*this, std::move(block));
        }
        return true;
    }

private:
    Lock lock_;
    Condition changed_;
    std::deque<std::move_only_function<void()>> blocks_ GUARDED_BY(lock_);
    bool stopped_ GUARDED_BY(lock_) = false;
};

// Never destroyed: blocks may come from threads that outlive the main function.
const std::shared_ptr<MainQueue>& mainQueue()
{
    static const auto& queue = *new std::shared_ptr<MainQueue>(std::make_shared<MainQueue>());
    return queue;
}

} // namespace

DispatchQueue::DispatchQueue(std::string label, Attributes attributes)
    : label_(std::move(label)), attributes_(attributes)
{}

std::shared_ptr<DispatchQueue> DispatchQueue::create(std::string label, Attributes attributes)
{
    if (attributes.kind == Kind::Serial)
        return std::make_shared<SerialQueue>(std::move(label), attributes);
    return std::make_shared<ConcurrentQueue>(std::move(label), attributes);
}

std::shared_ptr<DispatchQueue> DispatchQueue::global()
{
    static const auto& queue = *new std::shared_ptr<DispatchQueue>(
        create("global", {.kind = Kind::Concurrent, .qosClass = QOSClass::Default}));
    return queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::main()
{
    return mainQueue();
}

void DispatchQueue::sync(const std::function<void()>& block)
{
    std::binary_semaphore finished(0);
    async([&] {
        block();
        finished.release();
    });
    finished.acquire();
}

void DispatchQueue::runMain()
{
    mainQueue()->runUntilStopped();
}

void DispatchQueue::stopMain()
{
    mainQueue()->stop();
}

bool DispatchQueue::runMainUntil(const std::function<bool()>& done, double timeoutSeconds)
{
    const auto timeout =
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(timeoutSeconds));
    return mainQueue()->runUntil(done, std::chrono::steady_clock::now() + timeout);
}

void assertOnQueue([[maybe_unused]] const DispatchQueue& queue)
{
#ifndef NDEBUG
    if (queue.isCurrent())
        return;
    std::fprintf(stderr, "Not on queue \"%s\"\n", queue.label().c_str());
    std::abort();
#endif
}

} // namespace platform
