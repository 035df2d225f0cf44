#include "platform/connection/MainLoopThread.h"

#include <gio/gio.h>

#include <memory>
#include <semaphore>
#include <thread>
#include <utility>

namespace platform {

namespace {

using Block = std::move_only_function<void()>;

gboolean runBlock(gpointer data)
{
    (*static_cast<Block*>(data))();
    return G_SOURCE_REMOVE;
}

void deleteBlock(gpointer data)
{
    delete static_cast<Block*>(data);
}

struct UnrefSource {
    void operator()(GSource* source) const { g_source_unref(source); }
};

} // namespace

MainLoopThread& MainLoopThread::shared()
{
    static auto& thread = *new MainLoopThread;
    return thread;
}

MainLoopThread::MainLoopThread() : context_(g_main_context_new())
{
    std::thread([context = context_] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(g_main_loop_new(context, FALSE));
    }).detach();
}

void MainLoopThread::async(std::move_only_function<void()> block)
{
    const std::unique_ptr<GSource, UnrefSource> source(g_idle_source_new());
    g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
    g_source_set_callback(source.get(), runBlock, new Block(std::move(block)), deleteBlock);
    g_source_attach(source.get(), context_);
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
