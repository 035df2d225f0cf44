#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// The private folder of one job, inside the save folder's hidden folder for temporary files, so that the finished
/// movie reaches its place by a rename. Removed with everything in it when the object goes, and by the next job if this
/// process did not get that far. One thread at a time.
class JobFolder final {
public:
    /// Makes the save folder if it is missing, removes what dead processes left, and makes a folder for this job.
    /// @return null if the save folder cannot be made or written; `error` names it and why
    [[nodiscard]] static std::unique_ptr<JobFolder> create(const platform::NSURL& saveFolder,
                                                           platform::NSError* error = nullptr);

    ~JobFolder();
    JobFolder(const JobFolder&) = delete;
    JobFolder& operator=(const JobFolder&) = delete;

    const std::string& path() const { return path_; }
    /// For the service's intermediate files.
    const platform::NSURL& temporaryURL() const { return temporaryURL_; }
    /// Where the service puts the movie.
    const platform::NSURL& outputURL() const { return outputURL_; }

    /// An empty file whose name without its extension is `title`.
    [[nodiscard]] std::optional<platform::NSURL> makeDocument(const std::string& title,
                                                              platform::NSError* error = nullptr) const;

    /// Another location for a file: a link with the file's extension.
    [[nodiscard]] std::optional<platform::NSURL> makeAlias(const std::string& path,
                                                           platform::NSError* error = nullptr) const;

    /// For files that the client makes for the service.
    std::string pathForFile(const std::string& name) const { return path_ + "/documents/" + name; }

    /// Bytes of all files below, what is being written included; a sign of life of a stage that reports nothing.
    uint64_t sizeOfContents() const;

private:
    JobFolder(std::string hiddenFolder, std::string path, platform::FileDescriptor lock);

    const std::string hiddenFolder_;
    const std::string path_;
    /// Held as long as the folder is in use.
    platform::FileDescriptor lock_;
    const platform::NSURL temporaryURL_;
    const platform::NSURL outputURL_;
    /// Folders that were made for this job, the innermost last; removed again where they are empty.
    std::vector<std::string> madeFolders_;
    mutable size_t aliasCount_ = 0;
};

} // namespace stillora
