#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace platform {

/// File operations. Stateless: any thread.
class NSFileManager final {
public:
    /// Who may read a file that was not there: whom the process's file mode mask lets, or the user alone.
    enum class NewFile { ByMask, Private };

    static NSFileManager& defaultManager();

    /// Follows symbolic links: a dangling link does not exist.
    bool fileExistsAtPath(const std::string& path) const;
    bool fileExistsAtPath(const std::string& path, bool* isDirectory) const;

    /// A folder that is there already is no failure; a file in the way is (516).
    [[nodiscard]] bool createDirectoryAtURL(const NSURL& url, bool withIntermediateDirectories,
                                            NSError* error = nullptr) const;

    /// Never overwrites: fails with 516 if the destination exists, also when it appears in the same moment. A file
    /// moved to another volume is copied under a hidden name, flushed, and only then gets its name; the original is
    /// removed last. On success the file and its folder are flushed to the disk.
    [[nodiscard]] bool moveItemAtURL(const NSURL& source, const NSURL& destination, NSError* error = nullptr) const;

    /// Moves to `*destination` or, as often as somebody else was first there, to the location that `next` answers,
    /// given the one that is taken. Fails with 516 where it answers the same again, as for a link that leads nowhere:
    /// nothing seems to be there, and still nothing can be put there.
    /// @param destination  in: where to; out: the last that was tried, which received the item if that was moved
    [[nodiscard]] bool moveItemToFreeURL(const NSURL& source, NSURL* destination,
                                         const std::function<NSURL(const NSURL& taken)>& next,
                                         NSError* error = nullptr) const;

    /// A folder with all it holds; links are not followed.
    [[nodiscard]] bool removeItemAtURL(const NSURL& url, NSError* error = nullptr) const;

    /// A whole file; nothing for one that is no regular file or longer than `maximumBytes`.
    [[nodiscard]] std::optional<NSData> contentsAtURL(const NSURL& url, uint64_t maximumBytes,
                                                      NSError* error = nullptr) const;

    /// Replaces a file, or makes it, in one step: readers see the old contents or the new ones, also after a power
    /// failure. A link is kept and what it leads to replaced; a file that is there keeps its permissions.
    [[nodiscard]] bool writeContents(const NSData& contents, const NSURL& url, NSError* error = nullptr,
                                     NewFile newFile = NewFile::ByMask) const;

private:
    NSFileManager() = default;
};

/// `$TMPDIR`, else "/tmp/"; ends in "/".
std::string NSTemporaryDirectory();

/// A fresh random UUID as text: upper case, with hyphens.
std::string NSUUIDString();

} // namespace platform
