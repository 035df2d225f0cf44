#pragma once

#include "platform/foundation/Lock.h"

#include <utility>

namespace platform {

/// A value that may be read on one thread while another sets it; each is one step. Read as a copy.
template <typename T>
class AtomicProperty final {
public:
    AtomicProperty() = default;
    explicit AtomicProperty(T value) : value_(std::move(value)) {}
    AtomicProperty(const AtomicProperty&) = delete;
    AtomicProperty& operator=(const AtomicProperty&) = delete;

    T get() const
    {
        const LockGuard guard(lock_);
        return value_;
    }
    void set(T value)
    {
        // The old value ends outside the lock, whatever its end does.
        const LockGuard guard(lock_);
        std::swap(value_, value);
    }

private:
    mutable Lock lock_;
    T value_ GUARDED_BY(lock_){};
};

} // namespace platform
