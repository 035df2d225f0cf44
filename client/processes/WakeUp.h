#pragma once

#include "platform/foundation/FileDescriptor.h"

#include <cerrno>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace stillora {

/// A descriptor that wakes a thread which polls it. Any thread.
class WakeUp final {
public:
    /// Readable from `wake` to `clear`.
    int descriptor() const noexcept { return event_.get(); }

    /// Safe in a signal handler.
    void wake() const noexcept
    {
        const int before = errno;
        const uint64_t one = 1;
        static_cast<void>(!write(event_.get(), &one, sizeof one));
        errno = before;
    }

    void clear() const noexcept
    {
        uint64_t count = 0;
        static_cast<void>(!read(event_.get(), &count, sizeof count));
    }

private:
    const platform::FileDescriptor event_{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

} // namespace stillora
