#include "platform/picturefiles/ImageFile.h"

#include "platform/bytes/GivenFile.h"
#include "platform/foundation/LocalizedText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace platform {

namespace {

// What a header usually takes; a smaller step would only cost more calls.
constexpr size_t kReadStep = size_t{64} << 10;
// Decoders read a few bytes past the end.
constexpr size_t kPadding = 64;

NSData padded(NSData data)
{
    data.resize(data.size() + kPadding, 0);
    return data;
}

} // namespace

std::unique_ptr<ImageFile> ImageFile::open(const NSURL& url, NSError* error)
{
    const std::string name = url.lastPathComponent();
    FileDescriptor file = openForReading(url.path());
    if (!file) {
        failWithErrno(error, errno, localized("{} cannot be opened", {name}));
        return nullptr;
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadUnknownError,
             S_ISDIR(status.st_mode) ? localized("{} is a folder, not a picture", {name})
                                     : localized("{} is no regular file", {name}));
        return nullptr;
    }
    if (static_cast<uint64_t>(status.st_size) > kMaxBytes) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadUnknownError, localized("{} is too long for a picture", {name}));
        return nullptr;
    }
    return std::unique_ptr<ImageFile>(new ImageFile(std::move(file), static_cast<size_t>(status.st_size), name));
}

ImageFile::ImageFile(FileDescriptor file, size_t length, std::string name)
    : file_(std::move(file)), length_(length), name_(std::move(name))
{}

std::unique_ptr<ImageFile> ImageFile::withData(NSData data, std::string name, NSError* error)
{
    if (data.size() > kMaxBytes) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadUnknownError, localized("{} is too long for a picture", {name}));
        return nullptr;
    }
    return std::unique_ptr<ImageFile>(new ImageFile(std::move(data), std::move(name)));
}

ImageFile::ImageFile(NSData data, std::string name)
    : length_(data.size()), name_(std::move(name)), data_(padded(std::move(data)))
{}

std::span<const uint8_t> ImageFile::first(size_t count)
{
    count = std::min(count, length_);
    if (!file_)
        return std::span(data_).first(count);
    if (count > read_ && !ended_) {
        if (!bytes_) {
            // Memory for the whole file, of which the kernel gives only what is written.
            bytes_.reset(static_cast<uint8_t*>(std::malloc(length_ + kPadding)));
            if (!bytes_)
                return {};
        }
        if (count == length_)
            posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        const size_t wanted = std::min(length_, std::max(count, read_ + kReadStep));
        while (read_ < wanted) {
            const ssize_t got = readAt(read_, bytes_.get() + read_, wanted - read_);
            if (got <= 0) {
                ended_ = true;
                break;
            }
            read_ += static_cast<size_t>(got);
        }
        if (ended_ || read_ == length_)
            std::memset(bytes_.get() + read_, 0, kPadding);
    }
    return {bytes_.get(), std::min(count, read_)};
}

ssize_t ImageFile::readAt(size_t offset, uint8_t* bytes, size_t count) const
{
    if (!file_) {
        const size_t start = std::min(offset, length_);
        const size_t available = std::min(count, length_ - start);
        std::copy_n(data_.data() + start, available, bytes);
        return static_cast<ssize_t>(available);
    }
    ssize_t got = 0;
    do
        got = pread(file_.get(), bytes, count, static_cast<off_t>(offset));
    while (got < 0 && errno == EINTR);
    return got;
}

} // namespace platform
