#pragma once

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
    void async(std::move_only_function<void()> block);
    /// Waits until the block has run; on the thread itself it is run at once.
    void sync(const std::function<void()>& block);

private:
    MainLoopThread();

    _GMainContext* const context_;
};

} // namespace platform
