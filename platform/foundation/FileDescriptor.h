#pragma once

#include <unistd.h>
#include <utility>

namespace platform {

/// Owns a file descriptor.
class FileDescriptor final {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }
    void reset(int descriptor = -1)
    {
        if (const int old = std::exchange(descriptor_, descriptor); old >= 0)
            close(old);
    }

private:
    int descriptor_ = -1;
};

} // namespace platform
