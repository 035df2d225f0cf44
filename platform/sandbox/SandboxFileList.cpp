#include "platform/sandbox/SandboxFileList.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace platform {

namespace {

// Each path has one of these before it, and a zero after it, which no path has.
constexpr char kReadable = 'r';
constexpr char kWritable = 'w';

/// A hundred thousand photos with long paths take a tenth of it.
constexpr size_t kMostBytes = size_t{256} << 20;

std::string textOf(const SandboxFiles& files)
{
    std::string text;
    const auto add = [&](char right, const std::vector<std::string>& paths) {
        for (const std::string& path : paths)
            text.append(1, right).append(path).append(1, '\0');
    };
    add(kReadable, files.readable);
    add(kWritable, files.writable);
    return text;
}

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        text.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
    return true;
}

/// Nothing on failure, with `errno` set.
std::optional<std::string> readAll(int descriptor)
{
    std::string text;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = pread(descriptor, buffer.data(), buffer.size(), static_cast<off_t>(text.size()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return text;
        text.append(buffer.data(), static_cast<size_t>(count));
        if (text.size() > kMostBytes) {
            errno = EFBIG;
            return std::nullopt;
        }
    }
}

} // namespace

FileDescriptor writeSandboxFiles(const SandboxFiles& files, NSError* error)
{
    FileDescriptor list(memfd_create("files", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (list && writeAll(list.get(), textOf(files)) &&
        fcntl(list.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        return list;
    failWithErrno(error, errno, "the list of files cannot be written");
    return {};
}

std::optional<SandboxFiles> readSandboxFiles(int descriptor, NSError* error)
{
    const std::string name = "the list of files in descriptor " + std::to_string(descriptor);
    const auto text = readAll(descriptor);
    if (!text) {
        failWithErrno(error, errno, name + " cannot be read", FileAccess::Reading);
        return std::nullopt;
    }
    SandboxFiles files;
    for (std::string_view rest = *text; !rest.empty();) {
        const size_t end = rest.find('\0');
        const char right = rest.front();
        if (end == std::string_view::npos || (right != kReadable && right != kWritable)) {
            fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError, name + " is none");
            return std::nullopt;
        }
        (right == kReadable ? files.readable : files.writable).emplace_back(rest.substr(1, end - 1));
        rest.remove_prefix(end + 1);
    }
    return files;
}

} // namespace platform
