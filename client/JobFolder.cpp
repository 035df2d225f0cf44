#include "client/JobFolder.h"

#include "platform/files/NSFileManager.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr const char* kHiddenFolder = ".MORStilloraTemporaryFiles";
constexpr std::string_view kJobPrefix = "job-";

platform::FileDescriptor openFolder(const std::string& path)
{
    return platform::FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

/// Waits for others. File systems without locks are used without them.
void lock(const platform::FileDescriptor& folder)
{
    while (flock(folder.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
}

/// Whether nobody else holds the lock; false also where that cannot be known.
bool tryLock(const platform::FileDescriptor& folder)
{
    return folder && flock(folder.get(), LOCK_EX | LOCK_NB) == 0;
}

/// Removes the folders of jobs whose processes are gone. The hidden folder is locked meanwhile, so that a folder which
/// another process has just made and not yet locked is never seen.
void removeAbandonedJobs(const std::string& hiddenFolder)
{
    std::error_code ignored;
    std::vector<std::string> jobs;
    for (std::filesystem::directory_iterator entry(hiddenFolder, ignored), end; entry != end; entry.increment(ignored))
        if (entry->path().filename().native().starts_with(kJobPrefix))
            jobs.push_back(entry->path().native());
    for (const std::string& job : jobs) {
        const platform::FileDescriptor folder = openFolder(job);
        if (tryLock(folder))
            std::filesystem::remove_all(job, ignored);
    }
}

/// Makes a folder and the missing ones above it, adding each to `made`, innermost last.
bool makeFolders(const std::string& path, std::vector<std::string>& made, platform::NSError* error)
{
    std::vector<std::string> missing;
    struct stat status = {};
    std::filesystem::path folder = path;
    while (stat(folder.c_str(), &status) != 0 && errno == ENOENT && folder.has_relative_path()) {
        missing.push_back(folder.native());
        folder = folder.parent_path();
    }
    for (auto next = missing.rbegin(); next != missing.rend(); ++next) {
        if (mkdir(next->c_str(), 0777) == 0)
            made.push_back(*next);
        else if (errno != EEXIST)
            return platform::failWithErrno(error, errno, "the save folder " + path + " cannot be made");
    }
    if (stat(path.c_str(), &status) != 0)
        return platform::failWithErrno(error, errno, "the save folder " + path + " cannot be used");
    if (!S_ISDIR(status.st_mode))
        return platform::failWithErrno(error, ENOTDIR, "the save folder " + path + " cannot be used");
    return true;
}

void removeEmptyFolders(const std::vector<std::string>& folders)
{
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder)
        rmdir(folder->c_str());
}

std::string inside(const std::string& folder, std::string_view name)
{
    return folder + (folder.ends_with('/') ? "" : "/") + std::string(name);
}

} // namespace

std::unique_ptr<JobFolder> JobFolder::create(const platform::NSURL& saveFolder, platform::NSError* error)
{
    std::vector<std::string> made;
    const std::string& savePath = saveFolder.path();
    const auto refuse = [&](int errnoValue) {
        platform::failWithErrno(error, errnoValue, "the save folder " + savePath + " cannot be written");
        removeEmptyFolders(made);
        return nullptr;
    };
    if (!makeFolders(savePath, made, error)) {
        removeEmptyFolders(made);
        return nullptr;
    }
    const std::string hiddenFolder = inside(savePath, kHiddenFolder);
    // Another job may remove the hidden folder, once it is empty, at any moment before it is locked here.
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (mkdir(hiddenFolder.c_str(), 0777) != 0 && errno != EEXIST)
            return refuse(errno);
        const platform::FileDescriptor parent = openFolder(hiddenFolder);
        if (!parent) {
            if (errno == ENOENT)
                continue;
            return refuse(errno);
        }
        lock(parent);
        removeAbandonedJobs(hiddenFolder);

        const std::string path = inside(hiddenFolder, std::string(kJobPrefix) + platform::NSUUIDString());
        // Photos are private: nobody else looks into what is made of them.
        if (mkdir(path.c_str(), 0700) != 0) {
            if (errno == ENOENT)
                continue;
            return refuse(errno);
        }
        platform::FileDescriptor job = openFolder(path);
        if (!job)
            return refuse(errno);
        static_cast<void>(tryLock(job));
        for (const char* name : {"temporary", "output", "documents", "aliases"})
            if (mkdir(inside(path, name).c_str(), 0700) != 0) {
                const int reason = errno;
                std::error_code ignored;
                std::filesystem::remove_all(path, ignored);
                rmdir(hiddenFolder.c_str());
                return refuse(reason);
            }
        auto folder = std::unique_ptr<JobFolder>(new JobFolder(hiddenFolder, path, std::move(job)));
        folder->madeFolders_ = std::move(made);
        return folder;
    }
    return refuse(ENOENT);
}

JobFolder::JobFolder(std::string hiddenFolder, std::string path, platform::FileDescriptor lock)
    : hiddenFolder_(std::move(hiddenFolder)), path_(std::move(path)), lock_(std::move(lock)),
      temporaryURL_(platform::NSURL::fileURLWithPath(path_ + "/temporary", true)),
      outputURL_(platform::NSURL::fileURLWithPath(path_ + "/output", true))
{}

JobFolder::~JobFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    lock_.reset();
    // Fails, as it should, while another job is in there.
    rmdir(hiddenFolder_.c_str());
    removeEmptyFolders(madeFolders_);
}

std::optional<platform::NSURL> JobFolder::makeDocument(const std::string& title, platform::NSError* error) const
{
    // With an extension of its own, so that taking the extension away leaves all of the title.
    const std::string path = path_ + "/documents/" + title + ".stillora";
    const platform::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) {
        platform::failWithErrno(error, errno, "the title \"" + title + "\" cannot be the name of a file");
        return std::nullopt;
    }
    return platform::NSURL::fileURLWithPath(path, false);
}

std::optional<platform::NSURL> JobFolder::makeAlias(const std::string& path, platform::NSError* error) const
{
    std::string alias = fmt::format("{}/aliases/{}", path_, ++aliasCount_);
    if (const std::string extension = platform::pathExtension(path); !extension.empty())
        alias += "." + extension;
    std::error_code failure;
    const std::filesystem::path target = std::filesystem::absolute(path, failure);
    if (!failure)
        std::filesystem::create_symlink(target, alias, failure);
    if (failure) {
        platform::failWithErrno(error, failure.value(), "no link to " + path + " can be made");
        return std::nullopt;
    }
    return platform::NSURL::fileURLWithPath(alias, false);
}

uint64_t JobFolder::sizeOfContents() const
{
    uint64_t size = 0;
    std::error_code failure;
    std::filesystem::recursive_directory_iterator entry(path_, failure);
    const std::filesystem::recursive_directory_iterator end;
    while (!failure && entry != end) {
        // Files come and go while this looks; each one counts, even if it is empty.
        std::error_code gone;
        if (entry->is_regular_file(gone)) {
            const uintmax_t bytes = entry->file_size(gone);
            size += 1 + (gone ? 0 : bytes);
        }
        entry.increment(failure);
    }
    return size;
}

} // namespace stillora
