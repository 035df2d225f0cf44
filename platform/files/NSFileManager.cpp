#include "platform/files/NSFileManager.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <random>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

using FolderPtr = Handle<DIR, closedir>;

std::string parentOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Names of a folder's entries but "." and "..", or false with `errno`.
bool listEntries(DIR& folder, std::vector<std::string>& names)
{
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(&folder);
        if (!entry)
            return errno == 0;
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
}

bool listFolder(const std::string& path, std::vector<std::string>& names)
{
    const FolderPtr folder(opendir(path.c_str()));
    return folder && listEntries(*folder, names);
}

/// False with `errno`. File systems that cannot flush say EINVAL, and there is then nothing to wait for.
bool flushDescriptor(int descriptor)
{
    return fsync(descriptor) == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

bool flushFolder(const std::string& path)
{
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A folder that may be written but not read cannot be opened; its entries are flushed with the file system.
    return !folder || flushDescriptor(folder.get());
}

/// Flushes a file, or a folder with all it holds; false with `errno`.
bool flushTree(const std::string& path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return false;
    if (S_ISREG(status.st_mode)) {
        FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
        if (!file)
            file.reset(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
        // A file that its owner may neither read nor write can still be moved.
        return !file || flushDescriptor(file.get());
    }
    if (!S_ISDIR(status.st_mode))
        return true;
    std::vector<std::string> names;
    if (!listFolder(path, names))
        return errno == EACCES;
    for (const std::string& name : names) {
        if (!flushTree(path + "/" + name))
            return false;
    }
    return flushFolder(path);
}

/// Gives `source` the name `destination` on the same volume unless that name is taken; false with `errno`.
bool renameWithoutOverwriting(const std::string& source, const std::string& destination)
{
    if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return false;

    // This file system cannot rename so. A hard link does not overwrite either.
    struct stat status {};
    if (lstat(source.c_str(), &status) != 0)
        return false;
    if (S_ISDIR(status.st_mode)) {
        // An empty folder of our own may be replaced.
        if (mkdir(destination.c_str(), 0700) != 0)
            return false;
        if (rename(source.c_str(), destination.c_str()) == 0)
            return true;
        const int reason = errno;
        rmdir(destination.c_str());
        errno = reason;
        return false;
    }
    if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), 0) == 0) {
        if (unlink(source.c_str()) == 0)
            return true;
        const int reason = errno;
        unlink(destination.c_str());
        errno = reason;
        return false;
    }
    if (errno != EPERM && errno != ENOTSUP && errno != ENOSYS && errno != EMLINK)
        return false;
    // Nor has it links: reserve the name with an empty file, then replace that.
    const FileDescriptor reserved(open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!reserved)
        return false;
    if (rename(source.c_str(), destination.c_str()) == 0)
        return true;
    const int reason = errno;
    unlink(destination.c_str());
    errno = reason;
    return false;
}

/// False with `errno`.
bool writeBytes(int descriptor, const void* bytes, size_t count)
{
    const auto* rest = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t put = write(descriptor, rest, count);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return false;
        rest += put;
        count -= static_cast<size_t>(put);
    }
    return true;
}

bool copyBytes(int source, int destination)
{
    std::vector<char> buffer(1 << 20);
    for (;;) {
        const ssize_t got = read(source, buffer.data(), buffer.size());
        if (got == 0)
            return true;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (!writeBytes(destination, buffer.data(), static_cast<size_t>(got)))
            return false;
    }
}

/// Copies a file, a link or a folder with all it holds, with permissions and times, flushed; false with `errno`.
bool copyTree(const std::string& source, const std::string& destination)
{
    struct stat status {};
    if (lstat(source.c_str(), &status) != 0)
        return false;
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};

    if (S_ISREG(status.st_mode)) {
        const FileDescriptor input(open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!input)
            return false;
        const FileDescriptor output(open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!output || !copyBytes(input.get(), output.get()))
            return false;
        // Some file systems have no permissions or times of their own; the copy is whole without them.
        (void)!fchmod(output.get(), status.st_mode & 07777);
        (void)!futimens(output.get(), times.data());
        return flushDescriptor(output.get());
    }
    if (S_ISLNK(status.st_mode)) {
        std::error_code failure;
        std::filesystem::copy_symlink(source, destination, failure);
        errno = failure.value();
        return !failure;
    }
    if (!S_ISDIR(status.st_mode)) {
        errno = ENOTSUP;
        return false;
    }
    if (mkdir(destination.c_str(), 0700) != 0)
        return false;
    std::vector<std::string> names;
    if (!listFolder(source, names))
        return false;
    for (const std::string& name : names) {
        if (!copyTree(source + "/" + name, destination + "/" + name))
            return false;
    }
    (void)!chmod(destination.c_str(), status.st_mode & 07777);
    (void)!utimensat(AT_FDCWD, destination.c_str(), times.data(), 0);
    return flushFolder(destination);
}

/// Remembers the first `errno`.
class FirstFailure final {
public:
    void note(bool isDone)
    {
        if (!isDone && errno != ENOENT && reason_ == 0)
            reason_ = errno;
    }
    int reason() const { return reason_; }

private:
    int reason_ = 0;
};

/// By descriptors, so that nobody who swaps a folder for a link leads it elsewhere.
void removeEntry(int parent, const std::string& name, FirstFailure& failure)
{
    if (unlinkat(parent, name.c_str(), 0) == 0)
        return;
    if (errno != EISDIR && errno != EPERM) {
        failure.note(false);
        return;
    }
    FileDescriptor descriptor(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const FolderPtr folder(descriptor ? fdopendir(descriptor.get()) : nullptr);
    std::vector<std::string> names;
    failure.note(folder != nullptr);
    if (folder) {
        descriptor.release();
        failure.note(listEntries(*folder, names));
    }
    for (const std::string& inner : names)
        removeEntry(dirfd(folder.get()), inner, failure);
    failure.note(unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0);
}

/// False with `errno`; removes what it can, and tries again where something stays.
bool removeTree(const std::string& path)
{
    int reason = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        FirstFailure failure;
        removeEntry(AT_FDCWD, path, failure);
        reason = failure.reason();
        if (reason == 0)
            return true;
    }
    errno = reason;
    return false;
}

/// Moves to another volume: copy under a hidden name, flush, name, and only then remove the original.
bool moveAcrossVolumes(const std::string& source, const std::string& destination, const std::string& what,
                       NSError* error)
{
    // Not made from the destination's name, which may be as long as a name can be.
    const std::string hidden = parentOf(destination) + "/.moving-" + NSUUIDString();
    if (!copyTree(source, hidden) || !renameWithoutOverwriting(hidden, destination)) {
        const int reason = errno;
        removeTree(hidden);
        return failWithErrno(error, reason, what);
    }
    if (!flushFolder(parentOf(destination)))
        return failWithErrno(error, errno, what);
    if (!removeTree(source))
        return failWithErrno(error, errno, localized("\"{}\" was copied but could not be removed", {source}));
    return true;
}

} // namespace

NSFileManager& NSFileManager::defaultManager()
{
    static NSFileManager manager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(const std::string& path) const
{
    return fileExistsAtPath(path, nullptr);
}

bool NSFileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) const
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return false;
    if (isDirectory)
        *isDirectory = S_ISDIR(status.st_mode);
    return true;
}

bool NSFileManager::createDirectoryAtURL(const NSURL& url, bool withIntermediateDirectories, NSError* error) const
{
    const std::string& path = url.path();
    const std::string what = localized("The folder \"{}\" could not be made", {path});
    bool isDirectory = false;
    if (fileExistsAtPath(path, &isDirectory))
        return isDirectory || failWithErrno(error, EEXIST, what);

    const std::string parent = parentOf(path);
    if (withIntermediateDirectories && parent != path &&
        !createDirectoryAtURL(NSURL::fileURLWithPath(parent, true), true, error))
        return false;
    if (mkdir(path.c_str(), 0777) == 0)
        return true;
    const int reason = errno;
    // Another may have made it in between.
    if (reason == EEXIST && fileExistsAtPath(path, &isDirectory) && isDirectory)
        return true;
    return failWithErrno(error, reason, what);
}

bool NSFileManager::moveItemAtURL(const NSURL& source, const NSURL& destination, NSError* error) const
{
    const std::string& from = source.path();
    const std::string& to = destination.path();
    const std::string what = localized("\"{}\" could not be moved to \"{}\"", {from, to});

    struct stat status {};
    if (lstat(from.c_str(), &status) != 0)
        return failWithErrno(error, errno, what);
    // Said before a long copy; whether the name is still free is decided when it is taken.
    if (lstat(to.c_str(), &status) == 0)
        return failWithErrno(error, EEXIST, what);
    if (!flushTree(from))
        return failWithErrno(error, errno, what);
    if (!renameWithoutOverwriting(from, to)) {
        if (errno == EXDEV)
            return moveAcrossVolumes(from, to, what, error);
        return failWithErrno(error, errno, what);
    }
    if (!flushFolder(parentOf(to)) || !flushFolder(parentOf(from)))
        return failWithErrno(error, errno, localized("\"{}\" has its name but may not be safe on the disk", {to}));
    return true;
}

bool NSFileManager::moveItemToFreeURL(const NSURL& source, NSURL* destination,
                                      const std::function<NSURL(const NSURL& taken)>& next, NSError* error) const
{
    NSError failure;
    while (!moveItemAtURL(source, *destination, &failure)) {
        NSURL another = failure.code == kNSFileWriteFileExistsError ? next(*destination) : *destination;
        if (another == *destination) {
            if (error)
                *error = failure;
            return false;
        }
        *destination = std::move(another);
    }
    return true;
}

bool NSFileManager::removeItemAtURL(const NSURL& url, NSError* error) const
{
    const std::string what = localized("\"{}\" could not be removed", {url.path()});
    struct stat status {};
    if (lstat(url.path().c_str(), &status) != 0 || !removeTree(url.path()))
        return failWithErrno(error, errno, what);
    return true;
}

std::optional<NSData> NSFileManager::contentsAtURL(const NSURL& url, uint64_t maximumBytes, NSError* error) const
{
    const std::string what = localized("\"{}\" could not be read", {url.path()});
    // Without O_NONBLOCK a named pipe would hold us here.
    const FileDescriptor file(open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        failWithErrno(error, errno, what, FileAccess::Reading);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) > maximumBytes) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadUnknownError,
             localized("{}: it is no file of a fitting size", {what}));
        return std::nullopt;
    }
    NSData contents(static_cast<size_t>(status.st_size));
    size_t done = 0;
    while (done < contents.size()) {
        const ssize_t got = read(file.get(), contents.data() + done, contents.size() - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            failWithErrno(error, errno, what, FileAccess::Reading);
            return std::nullopt;
        }
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    contents.resize(done);
    return contents;
}

bool NSFileManager::writeContents(const NSData& contents, const NSURL& url, NSError* error, NewFile newFile) const
{
    const std::string what = localized("\"{}\" could not be written", {url.path()});
    std::error_code ignored;
    std::string path = url.path();
    if (std::filesystem::is_symlink(path, ignored)) {
        if (const auto target = std::filesystem::canonical(path, ignored); !ignored)
            path = target.native();
    }
    struct stat status {};
    const mode_t mode = stat(path.c_str(), &status) == 0 ? status.st_mode & 0777
                        : newFile == NewFile::Private    ? 0600
                                                         : 0666;
    const std::string hidden = parentOf(path) + "/.writing-" + NSUUIDString();
    const FileDescriptor file(open(hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file)
        return failWithErrno(error, errno, what);
    if (!writeBytes(file.get(), contents.data(), contents.size()) || !flushDescriptor(file.get()) ||
        rename(hidden.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(hidden.c_str());
        return failWithErrno(error, reason, what);
    }
    return flushFolder(parentOf(path)) || failWithErrno(error, errno, what);
}

std::string NSTemporaryDirectory()
{
    const char* folder = getenv("TMPDIR");
    std::string path = folder && *folder ? folder : "/tmp/";
    if (path.back() != '/')
        path += '/';
    return path;
}

namespace {

/// For names, which need be new and no secret: by the process, the time and a count.
void fillWithNumbersOfOurOwn(std::array<unsigned char, 16>& bytes)
{
    static std::atomic<uint64_t> count{0};
    std::seed_seq seed{static_cast<uint64_t>(getpid()),
                       static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()), ++count};
    std::array<uint32_t, 4> words{};
    seed.generate(words.begin(), words.end());
    std::memcpy(bytes.data(), words.data(), bytes.size());
}

} // namespace

std::string NSUUIDString()
{
    std::array<unsigned char, 16> bytes{};
    // Never short below 256 bytes; it waits only while the system boots, and fails only where it is forbidden.
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        fillWithNumbersOfOurOwn(bytes);
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += kHexDigits[bytes[i] >> 4];
        text += kHexDigits[bytes[i] & 0xF];
    }
    return text;
}

} // namespace platform
