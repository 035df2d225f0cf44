#include "client/files/FileCopy.h"

#include "client/text/ClientError.h"
#include "client/text/LocalizedText.h"
#include "platform/foundation/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

/// Between two questions whether to go on.
constexpr size_t kPieceBytes = size_t{16} << 20;
constexpr size_t kBufferBytes = size_t{1} << 20;

/// A copy of the kernel's own is not possible between these two files; -1 and the reason otherwise.
bool isOtherWayWorthATry(int reason)
{
    return reason == EXDEV || reason == EINVAL || reason == ENOSYS || reason == EOPNOTSUPP || reason == EPERM ||
           reason == ETXTBSY || reason == EBADF;
}

/// Bytes copied, 0 at the end, -1 with `errno`.
ssize_t copyPieceByBuffer(int source, int destination)
{
    // One for each thread, since several copy at once.
    thread_local const auto buffer = std::make_unique<std::array<char, kBufferBytes>>();
    ssize_t count = 0;
    do
        count = read(source, buffer->data(), buffer->size());
    while (count < 0 && errno == EINTR);
    for (ssize_t written = 0; written < count;) {
        const ssize_t now = write(destination, buffer->data() + written, static_cast<size_t>(count - written));
        if (now < 0 && errno != EINTR)
            return -1;
        written += now < 0 ? 0 : now;
    }
    return count;
}

/// Passes over what the disk holds nothing of, which the copy then holds nothing of, either.
/// @return how many bytes; 0 where there are none, or where the file system does not tell
off_t passHole(int source, int destination)
{
    const off_t here = lseek(source, 0, SEEK_CUR);
    off_t data = lseek(source, here, SEEK_DATA);
    if (data < 0 && errno == ENXIO)
        data = lseek(source, 0, SEEK_END);
    if (data <= here || lseek(destination, data, SEEK_SET) != data) {
        lseek(source, here, SEEK_SET);
        return 0;
    }
    return data - here;
}

/// Bytes to the next hole, no more than a piece.
size_t bytesToHole(int source)
{
    const off_t here = lseek(source, 0, SEEK_CUR);
    const off_t hole = lseek(source, here, SEEK_HOLE);
    lseek(source, here, SEEK_SET);
    return hole > here ? std::min(static_cast<size_t>(hole - here), kPieceBytes) : kPieceBytes;
}

} // namespace

bool copyContents(const std::string& source, const std::string& destination,
                  const std::function<bool(uint64_t)>& bytesCopied, platform::NSError* error)
{
    const auto failCopying = [&](int reason) {
        return platform::failWithErrno(error, reason, localized("{} cannot be copied to {}", source, destination));
    };
    // What became a pipe meanwhile would keep whoever opens it waiting.
    const platform::FileDescriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!from || fstat(from.get(), &status) != 0)
        return platform::failWithErrno(error, errno, localized("{} cannot be read", source),
                                       platform::FileAccess::Reading);
    if (!S_ISREG(status.st_mode))
        return platform::fail(error, platform::kNSCocoaErrorDomain, platform::kNSFileReadUnknownError,
                              localized("{} is not a regular file", source));
    const platform::FileDescriptor to(open(destination.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!to)
        return failCopying(errno);

    bool isKernelCopying = true;
    bool endsInHole = false;
    for (;;) {
        const off_t hole = passHole(from.get(), to.get());
        endsInHole = endsInHole || hole > 0;
        if (hole > 0 && !bytesCopied(static_cast<uint64_t>(hole)))
            return fail(error, ErrorCode::Cancelled, localized("stopped"));
        ssize_t count = -1;
        if (isKernelCopying) {
            count = copy_file_range(from.get(), nullptr, to.get(), nullptr, bytesToHole(from.get()), 0);
            // Some file systems answer nothing where there is something; reading finds out.
            if ((count < 0 && isOtherWayWorthATry(errno)) || count == 0) {
                isKernelCopying = false;
                continue;
            }
        } else {
            count = copyPieceByBuffer(from.get(), to.get());
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failCopying(errno);
        if (count == 0)
            break;
        endsInHole = false;
        if (!bytesCopied(static_cast<uint64_t>(count)))
            return fail(error, ErrorCode::Cancelled, localized("stopped"));
    }
    if (endsInHole && ftruncate(to.get(), lseek(to.get(), 0, SEEK_CUR)) != 0)
        return failCopying(errno);
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, status.st_mtim};
    static_cast<void>(futimens(to.get(), times.data()));
    if (fsync(to.get()) != 0 && errno != EINVAL && errno != ENOTSUP)
        return failCopying(errno);
    return true;
}

} // namespace stillora
