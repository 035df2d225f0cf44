#pragma once

#include <fcntl.h>
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

/// Fills those of the descriptors 0 to 2 that a program was started without, so that no file which it opens later takes
/// their place and with it what is written for the user. Reading and writing them goes on to fail. For the first line
/// of a main function.
inline void holdStandardDescriptors()
{
    int descriptor = -1;
    do {
        // Open the other way round: each can only be used as it must not be.
        descriptor = open("/dev/null", fcntl(STDIN_FILENO, F_GETFD) < 0 ? O_WRONLY : O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0)
        close(descriptor);
}

} // namespace platform
