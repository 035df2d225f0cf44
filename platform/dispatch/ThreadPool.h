#pragma once

#include "platform/foundation/Lock.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

namespace platform {

/// Threads that run blocks in order of adding: as many as there are processors, and one more whenever blocks wait and
/// none was begun for some milliseconds, as the threads may all be waiting for what those blocks do. Idle threads but
/// the last one end after a while. Never destroyed: blocks may wait for ever, and must not be torn down under the
/// process's own exit.
///
/// Where the system makes no more threads, those that there are go on. Where that leads nowhere, as all of them
/// wait, the process ends by an uncaught std::system_error: a block that is never run is waited for without end. The
/// first block of a pool throws one.
class ThreadPool final {
public:
    /// The pool whose threads run at the process's niceness plus `niceness` (0 to 19).
    static ThreadPool& withNiceness(int niceness);

    void submit(std::move_only_function<void()> block) EXCLUDES(lock_);

    /// Threads alive now, for tests.
    size_t threadCount() EXCLUDES(lock_);

private:
    explicit ThreadPool(int niceness);

    void work() EXCLUDES(lock_);
    /// Makes threads for blocks that wait.
    void watch() EXCLUDES(lock_);
    void watchUntilNoneWaits() REQUIRES(lock_);
    bool addThread() REQUIRES(lock_);

    const int niceness_;
    const size_t processors_;

    Lock lock_;
    Condition workAdded_;
    std::deque<std::move_only_function<void()>> pending_ GUARDED_BY(lock_);
    size_t threads_ GUARDED_BY(lock_) = 0;
    size_t idle_ GUARDED_BY(lock_) = 0;
    /// Blocks taken so far.
    uint64_t begun_ GUARDED_BY(lock_) = 0;
    bool needsWatch_ GUARDED_BY(lock_) = false;
    Condition watchNeeded_;
};

} // namespace platform
