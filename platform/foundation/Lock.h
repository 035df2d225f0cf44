#pragma once

#include <condition_variable>
#include <mutex>

// Clang's thread safety analysis; nothing elsewhere.
#if defined(__clang__)
#define THREAD_ANALYSIS_ATTRIBUTE(x) __attribute__((x))
#else
#define THREAD_ANALYSIS_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) THREAD_ANALYSIS_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY THREAD_ANALYSIS_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANALYSIS_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) THREAD_ANALYSIS_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANALYSIS_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANALYSIS_ATTRIBUTE(release_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_ANALYSIS_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANALYSIS_ATTRIBUTE(no_thread_safety_analysis)

namespace platform {

/// A mutex that the thread safety analysis knows.
class CAPABILITY("mutex") Lock final {
public:
    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

/// Holds a Lock for a scope.
class SCOPED_CAPABILITY LockGuard final {
public:
    explicit LockGuard(Lock& lock) ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
    ~LockGuard() RELEASE() { lock_.unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    Lock& lock_;
};

/// Waited for while a Lock is held.
using Condition = std::condition_variable_any;

} // namespace platform
