#include "platform/connection/MainLoopThread.h"

#include <glib.h>

#include <cassert>
#include <semaphore>
#include <thread>
#include <utility>

namespace platform {

MainLoopThread& MainLoopThread::shared()
{
    // Never destroyed: the thread never ends.
    static auto& thread = *new MainLoopThread;
    return thread;
}

MainLoopThread::MainLoopThread() : context_(g_main_context_new())
{
    std::thread([this] { run(); }).detach();
}

void MainLoopThread::run()
{
    g_main_context_push_thread_default(context_);
    for (;;) {
        g_main_context_iteration(context_, TRUE);
        std::deque<std::move_only_function<void()>> blocks;
        {
            LockGuard guard(lock_);
            blocks.swap(blocks_);
        }
        for (auto& block : blocks)
            std::exchange(block, nullptr)();
    }
}

void MainLoopThread::async(std::move_only_function<void()> block)
{
    {
        LockGuard guard(lock_);
        blocks_.push_back(std::move(block));
    }
    g_main_context_wakeup(context_);
}

void MainLoopThread::assertCurrent() const
{
    assert(g_main_context_is_owner(context_));
}

void MainLoopThread::sync(const std::function<void()>& block)
{
    if (g_main_context_is_owner(context_)) {
        block();
        return;
    }
    std::binary_semaphore finished(0);
    async([&] {
        block();
        finished.release();
    });
    finished.acquire();
}

} // namespace platform
