#include "platform/bytes/ByteSource.h"

#include "platform/bytes/GivenFile.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

FileState stateOf(const struct stat& status)
{
    if (!S_ISREG(status.st_mode))
        return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

} // namespace

FileState FileState::ofFile(const std::string& path)
{
    struct stat status {};
    return statForReading(path, status) ? stateOf(status) : FileState{};
}

FileBytes::FileBytes(const std::string& path) : file_(openForReading(path))
{
    struct stat status {};
    if (file_ && fstat(file_.get(), &status) == 0)
        state_ = stateOf(status);
}

bool FileBytes::leavesRoom() const
{
    // A new file's number is the lowest that is free. The limit is -1 where there is none.
    const auto most = static_cast<unsigned long>(sysconf(_SC_OPEN_MAX));
    return static_cast<unsigned long>(file_.get()) < most / 2;
}

bool FileBytes::read(int64_t offset, std::span<uint8_t> bytes) const
{
    return readSome(offset, bytes) == static_cast<ssize_t>(bytes.size());
}

ssize_t FileBytes::readSome(int64_t offset, std::span<uint8_t> bytes) const
{
    ssize_t got = 0;
    do
        got = pread(file_.get(), bytes.data(), bytes.size(), offset);
    while (got < 0 && errno == EINTR);
    return got;
}

bool MemoryBytes::read(int64_t offset, std::span<uint8_t> bytes) const
{
    if (offset < 0 || offset > size() || bytes.size() > static_cast<uint64_t>(size() - offset))
        return false;
    std::copy_n(bytes_.begin() + offset, bytes.size(), bytes.begin());
    return true;
}

} // namespace platform
