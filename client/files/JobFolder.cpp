#include "client/files/JobFolder.h"

#include "client/text/LocalizedText.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSLog.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr const char* kHiddenFolder = ".MORStilloraTemporaryFiles";
/// With an identifier after it, where the usual one is not the user's own.
constexpr std::string_view kOwnHiddenPrefix = ".MORStilloraTemporaryFiles-";
constexpr std::string_view kJobPrefix = "job-";

/// For another job that makes or clears folders.
constexpr std::chrono::seconds kLongestWait{2};
constexpr std::chrono::milliseconds kLockPause{5};

platform::FileDescriptor openFolder(const std::string& path)
{
    return platform::FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

/// Whether nobody else can change what is in the folder. One of the user's own is made so.
bool isPrivate(const platform::FileDescriptor& folder)
{
    struct stat status = {};
    if (fstat(folder.get(), &status) != 0 || status.st_uid != geteuid())
        return false;
    constexpr mode_t kOfOthers = S_IWGRP | S_IWOTH;
    return (status.st_mode & kOfOthers) == 0 || fchmod(folder.get(), status.st_mode & 07777 & ~kOfOthers) == 0;
}

/// Whether nobody else holds the lock; false also where that cannot be known.
bool tryLock(const platform::FileDescriptor& folder)
{
    return folder && flock(folder.get(), LOCK_EX | LOCK_NB) == 0;
}

/// Waits for others, but not for ever: a lock may be held by anybody who can open the folder. File systems without
/// locks are used without them.
bool lockInTime(const platform::FileDescriptor& folder)
{
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    while (!tryLock(folder)) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return true;
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(kLockPause);
    }
    return true;
}

std::vector<std::string> entriesThatBeginWith(std::string_view prefix, const std::string& folder)
{
    std::error_code ignored;
    std::vector<std::string> paths;
    for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored))
        if (entry->path().filename().native().starts_with(prefix))
            paths.push_back(entry->path().native());
    return paths;
}

bool removeFolder(const std::string& path, platform::NSError* error = nullptr)
{
    return platform::NSFileManager::defaultManager().removeItemAtURL(platform::NSURL::fileURLWithPath(path, true),
                                                                     error);
}

/// Removes the folders of jobs whose processes are gone. The hidden folder is locked meanwhile, so that a folder which
/// another process has just made and not yet locked is never seen.
void removeAbandonedJobs(const std::string& hiddenFolder)
{
    for (const std::string& job : entriesThatBeginWith(kJobPrefix, hiddenFolder)) {
        const platform::FileDescriptor folder = openFolder(job);
        if (tryLock(folder))
            static_cast<void>(removeFolder(job));
    }
}

/// The same for hidden folders of their own.
void removeAbandonedFolders(const std::string& saveFolder)
{
    for (const std::string& path : entriesThatBeginWith(kOwnHiddenPrefix, saveFolder)) {
        const platform::FileDescriptor folder = openFolder(path);
        if (!folder || !isPrivate(folder) || !tryLock(folder))
            continue;
        removeAbandonedJobs(path);
        rmdir(path.c_str());
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
            return platform::failWithErrno(error, errno, localized("the folder {} cannot be made", path));
    }
    if (stat(path.c_str(), &status) != 0)
        return platform::failWithErrno(error, errno, localized("the folder {} cannot be used", path));
    if (!S_ISDIR(status.st_mode))
        return platform::failWithErrno(error, ENOTDIR, localized("the folder {} cannot be used", path));
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
        platform::failWithErrno(error, errnoValue, localized("the folder {} cannot be written", savePath));
        removeEmptyFolders(made);
        return nullptr;
    };
    if (!makeFolders(savePath, made, error)) {
        removeEmptyFolders(made);
        return nullptr;
    }
    removeAbandonedFolders(savePath);
    std::string hiddenFolder = inside(savePath, kHiddenFolder);
    // Another job may remove the hidden folder, once it is empty, at any moment before it is locked here.
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (mkdir(hiddenFolder.c_str(), 0700) != 0 && errno != EEXIST)
            return refuse(errno);
        const platform::FileDescriptor parent = openFolder(hiddenFolder);
        if (!parent && errno == ENOENT)
            continue;
        // A reason that another folder would not be without: descriptors or memory are short.
        if (!parent && errno != ELOOP && errno != ENOTDIR && errno != EACCES) {
            const int reason = errno;
            rmdir(hiddenFolder.c_str());
            return refuse(reason);
        }
        // In a folder that others write, the owner of the usual one could put a link in the place of what is made
        // there.
        if (!parent || !isPrivate(parent) || !lockInTime(parent)) {
            hiddenFolder = inside(savePath, std::string(kOwnHiddenPrefix) + platform::NSUUIDString());
            continue;
        }
        removeAbandonedJobs(hiddenFolder);

        const std::string path = inside(hiddenFolder, std::string(kJobPrefix) + platform::NSUUIDString());
        // Photos are private: nobody else looks into what is made of them.
        if (mkdir(path.c_str(), 0700) != 0) {
            const int reason = errno;
            if (reason == ENOENT)
                continue;
            rmdir(hiddenFolder.c_str());
            return refuse(reason);
        }
        platform::FileDescriptor job = openFolder(path);
        if (!job) {
            const int reason = errno;
            static_cast<void>(removeFolder(path));
            rmdir(hiddenFolder.c_str());
            return refuse(reason);
        }
        static_cast<void>(tryLock(job));
        for (const char* name : {"temporary", "output", "documents", "aliases"})
            if (mkdir(inside(path, name).c_str(), 0700) != 0) {
                const int reason = errno;
                static_cast<void>(removeFolder(path));
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
    platform::NSError error;
    if (!removeFolder(path_, &error))
        platform::NSLog(error.localizedDescription);
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
        platform::failWithErrno(error, errno, localized("the title \"{}\" cannot be the name of a file", title));
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
        platform::failWithErrno(error, failure.value(), localized("no link to {} can be made", path));
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
