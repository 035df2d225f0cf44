#include "client/files/ResourceCopier.h"

#include "client/files/FileCopy.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/ClientError.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr auto kProgressInterval = std::chrono::milliseconds(100);

/// The longest name of a file that common file systems take, in bytes.
constexpr size_t kMaxNameBytes = 255;

/// The earlier of the times at which the file was made and last changed: a copy is made later than it was changed.
std::optional<platform::NSDate> creationDateOf(const std::string& path)
{
    struct statx status = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME | STATX_MTIME, &status) != 0)
        return std::nullopt;
    const auto secondsOf = [](const statx_timestamp& time) {
        return static_cast<double>(time.tv_sec) + time.tv_nsec / 1e9 - platform::kTimeIntervalSince1970;
    };
    const double changed = secondsOf(status.stx_mtime);
    const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0 && status.stx_btime.tv_sec > 0;
    return platform::NSDate{hasBirth ? std::min(changed, secondsOf(status.stx_btime)) : changed};
}

/// Nothing for what is no picture.
std::optional<platform::NSColor> colorOf(const std::string& path, const std::atomic<bool>& isStopped)
{
    const auto color = FileReader::shared().ask(ColorQuestion{path}, [&] { return !isStopped; });
    if (!color || !*color)
        return std::nullopt;
    return platform::NSColor{.red = (*color)->red, .green = (*color)->green, .blue = (*color)->blue};
}

/// "name.jpg", "name-2.jpg", "name-3.jpg", as long as a file's name may be.
std::string numberedName(const std::string& name, size_t number)
{
    if (number < 2 && name.size() <= kMaxNameBytes)
        return name;
    std::string end = number < 2 ? "" : fmt::format("-{}", number);
    if (const std::string extension = platform::pathExtension(name); !extension.empty())
        end += "." + extension;
    const std::string stem = platform::stringByDeletingPathExtension(name);
    return std::string(prefixOfBytes(stem, kMaxNameBytes - std::min(kMaxNameBytes, end.size()))) + end;
}

} // namespace

/// What the operations share with the thread that waits for them.
struct ResourceCopier::Work {
    platform::Lock lock;
    platform::Condition changed;
    size_t filesDone GUARDED_BY(lock) = 0;
    /// Of the operation that failed first.
    std::optional<platform::NSError> failure GUARDED_BY(lock);
    std::atomic<uint64_t> bytesDone{0};
    std::atomic<bool> isStopped{false};
};

ResourceCopier::~ResourceCopier()
{
    if (isKept_)
        return;
    for (const Copy& copy : copies_)
        unlink(copy.path.c_str());
}

std::vector<std::string> ResourceCopier::keep()
{
    isKept_ = true;
    std::vector<std::string> paths;
    for (const Copy& copy : copies_)
        paths.push_back(copy.path);
    return paths;
}

bool ResourceCopier::reserve(std::string_view folder, const std::vector<std::string>& sources, Kind kind,
                             platform::NSError* error)
{
    if (sources.empty())
        return true;
    // Step by step, so that no link leads out of the document.
    platform::FileDescriptor into(open(documentFolder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::string path = documentFolder_;
    for (const auto& part : std::filesystem::path(folder)) {
        path += "/" + part.native();
        if (into && mkdirat(into.get(), part.c_str(), 0777) != 0 && errno != EEXIST)
            return platform::failWithErrno(error, errno, localized("the folder {} cannot be made", path));
        if (into)
            into.reset(openat(into.get(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    if (!into)
        return platform::failWithErrno(error, errno, localized("the folder {} cannot be used", path));

    // Where the search for a free name has got to, for many files of one name.
    std::map<std::string, size_t> numbers;
    for (const std::string& source : sources) {
        struct stat status = {};
        if (stat(source.c_str(), &status) != 0)
            return platform::failWithErrno(error, errno, localized("{} cannot be read", source),
                                           platform::FileAccess::Reading);
        const auto [known, isFirst] = known_.try_emplace({kind, {status.st_dev, status.st_ino}}, copies_.size());
        indices_.push_back(known->second);
        if (!isFirst)
            continue;
        const std::string name = platform::lastPathComponent(source);
        size_t& number = numbers[name];
        std::string free;
        // As private as the original.
        const mode_t mode = (status.st_mode & 0666) | S_IRUSR | S_IWUSR;
        platform::FileDescriptor file;
        do {
            free = numberedName(name, ++number);
            file.reset(openat(into.get(), free.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        } while (!file && errno == EEXIST);
        if (!file)
            return platform::failWithErrno(error, errno,
                                           localized("{} cannot be copied to {}", source, path + "/" + free));
        copies_.push_back({source, path + "/" + free, kind, creationDateOf(source), 0, std::nullopt});
        byteCount_ += static_cast<uint64_t>(std::max<off_t>(status.st_size, 0));
    }
    return true;
}

bool ResourceCopier::copy(const std::function<bool(const CopyProgress&)>& progress, platform::NSError* error)
{
    const auto work = std::make_shared<Work>();
    platform::NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
    // Each operation has a copy of its own to fill in, and all are waited for.
    for (Copy& copy : copies_)
        queue.addOperationWithBlock([work, &copy] {
            platform::NSError failure;
            const bool isCopied = !work->isStopped && copyContents(
                                                          copy.source, copy.path,
                                                          [&](uint64_t bytes) {
                                                              work->bytesDone += bytes;
                                                              copy.bytes += bytes;
                                                              return !work->isStopped;
                                                          },
                                                          &failure);
            if (isCopied && copy.kind == Kind::Photo)
                copy.averageColor = colorOf(copy.path, work->isStopped);
            const platform::LockGuard guard(work->lock);
            ++work->filesDone;
            if (!isCopied && !work->isStopped.exchange(true))
                work->failure = std::move(failure);
            work->changed.notify_all();
        });

    CopyProgress now{0, copies_.size(), 0, byteCount_};
    bool isCancelled = false;
    while (now.filesDone < copies_.size()) {
        {
            const platform::LockGuard guard(work->lock);
            if (work->filesDone < copies_.size())
                work->changed.wait_for(work->lock, kProgressInterval);
            now.filesDone = work->filesDone;
        }
        now.bytesDone = std::min(work->bytesDone.load(), byteCount_);
        if (!isCancelled && progress && !progress(now)) {
            isCancelled = true;
            work->isStopped = true;
        }
    }
    queue.waitUntilAllOperationsAreFinished();
    const platform::LockGuard guard(work->lock);
    if (work->failure && error)
        *error = *work->failure;
    if (isCancelled && !work->failure)
        return fail(error, ErrorCode::Cancelled, localized("stopped"));
    return !work->failure;
}

} // namespace stillora
