#pragma once

#include "platform/foundation/Lock.h"

#include <deque>
#include <functional>

extern "C" {
struct _GMainContext;
}

namespace platform {

/// The one thread of the process on which GLib reports what happens to sockets. Never ends; nothing that takes long
/// runs on it.
class MainLoopThread final {
public:
    static MainLoopThread& shared();

    _GMainContext* context() const { return context_; }

    /// Runs the block on the thread, in order of calling.
    void async(std::move_only_function<void()> block) EXCLUDES(lock_);
    /// Waits until the block has run; on the thread itself it is run at once.
    void sync(const std::function<void()>& block);

    /// Ends the process with a message unless the calling thread is this one. Checked in debug builds only.
    void assertCurrent() const;

private:
    MainLoopThread();
    void run() EXCLUDES(lock_);

    _GMainContext* const context_;

    Lock lock_;
    std::deque<std::move_only_function<void()>> blocks_ GUARDED_BY(lock_);
};

} // namespace platform
