#include "platform/bytes/GivenFile.h"

#include "platform/foundation/Lock.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>

namespace platform {

namespace {

struct Entry {
    const GivenFile* owner = nullptr;
    std::string path;
    /// The owner's, or -1.
    int descriptor = -1;
    int openErrno = 0;
};

/// As many as are read at once: few.
struct Entries {
    Lock lock;
    std::vector<Entry> newestLast GUARDED_BY(lock);

    static Entries& shared()
    {
        // Never destroyed: files may still be read while the process ends.
        static auto& entries = *new Entries;
        return entries;
    }
};

/// What `use` makes of the file that was given for a path; nothing where none was.
template <typename Use>
auto withGivenFile(const std::string& path, Use use) -> std::optional<decltype(use(-1))>
{
    Entries& entries = Entries::shared();
    const LockGuard guard(entries.lock);
    const auto entry = std::find_if(entries.newestLast.rbegin(), entries.newestLast.rend(),
                                    [&](const Entry& each) { return each.path == path; });
    if (entry == entries.newestLast.rend())
        return std::nullopt;
    errno = entry->openErrno;
    return use(entry->descriptor);
}

std::optional<FileDescriptor> copyOfGivenFile(const std::string& path)
{
    return withGivenFile(path, [](int descriptor) {
        return FileDescriptor(descriptor < 0 ? -1 : fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    });
}

} // namespace

GivenFile::GivenFile(std::string path, FileDescriptor file) : path_(std::move(path)), file_(std::move(file))
{
    enter(0);
}

GivenFile::GivenFile(std::string path, int openErrno) : path_(std::move(path))
{
    enter(openErrno);
}

void GivenFile::enter(int openErrno)
{
    Entries& entries = Entries::shared();
    const LockGuard guard(entries.lock);
    entries.newestLast.push_back({this, path_, file_.get(), openErrno});
}

GivenFile::~GivenFile()
{
    Entries& entries = Entries::shared();
    const LockGuard guard(entries.lock);
    std::erase_if(entries.newestLast, [this](const Entry& each) { return each.owner == this; });
}

FileDescriptor openForReading(const std::string& path)
{
    auto given = copyOfGivenFile(path);
    // Without O_NONBLOCK a pipe would be waited for.
    return given ? *std::move(given) : FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

FileDescriptor makeForWriting(const std::string& path)
{
    auto given = copyOfGivenFile(path);
    return given ? *std::move(given) : FileDescriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
}

bool statForReading(const std::string& path, struct stat& status)
{
    const auto given =
        withGivenFile(path, [&](int descriptor) { return descriptor >= 0 && fstat(descriptor, &status) == 0; });
    return given ? *given : stat(path.c_str(), &status) == 0;
}

} // namespace platform
