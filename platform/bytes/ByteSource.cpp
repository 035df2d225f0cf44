#include "platform/bytes/ByteSource.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

// Without O_NONBLOCK a pipe would be waited for.
FileBytes::FileBytes(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    struct stat status {};
    if (file_ && fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode))
        size_ = status.st_size;
}

bool FileBytes::read(int64_t offset, std::span<uint8_t> bytes) const
{
    return pread(file_.get(), bytes.data(), bytes.size(), offset) == static_cast<ssize_t>(bytes.size());
}

bool MemoryBytes::read(int64_t offset, std::span<uint8_t> bytes) const
{
    if (offset < 0 || offset > size() || bytes.size() > static_cast<uint64_t>(size() - offset))
        return false;
    std::copy_n(bytes_.begin() + offset, bytes.size(), bytes.begin());
    return true;
}

} // namespace platform
