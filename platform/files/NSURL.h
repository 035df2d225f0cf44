#pragma once

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// @name Path strings: bytes as given, never normalised; runs of "/" count as one, trailing ones do not count.
/// @{
std::string lastPathComponent(std::string_view path);
/// Without the dot. Empty where there is none: hidden files, a trailing dot, an extension that holds a blank.
std::string pathExtension(std::string_view path);
std::string stringByDeletingPathExtension(std::string_view path);
/// @return nothing for "/" and the empty path
std::optional<std::string> stringByAppendingPathExtension(std::string_view path, std::string_view extension);
/// "~" and "~/..." by the user's home folder (`$HOME`, else the password database); without a trailing "/".
std::string stringByExpandingTildeInPath(std::string_view path);
/// @}

enum class BookmarkCreationOptions : unsigned { None = 0, WithSecurityScope = 2048 };
enum class BookmarkResolutionOptions : unsigned { None = 0, WithSecurityScope = 1024 };

/// The location of a file or folder. Path bytes are kept as given; a location that is absent is a `std::optional`.
class NSURL final {
public:
    /// A relative path is taken from the current folder. A trailing "/" means a folder; without one the file system is
    /// asked, so that a folder which exists gets one.
    static NSURL fileURLWithPath(std::string_view path);
    static NSURL fileURLWithPath(std::string_view path, bool isDirectory);

    /// Reads a file URL, percent-escapes included; a trailing "/" means a folder. The host "localhost" is kept.
    /// @return nothing for what is no file URL, or one of another machine
    static std::optional<NSURL> URLWithString(std::string_view text);

    /// Finds what the bookmark was made of, also after it was renamed or moved on its volume.
    ///
    /// @param stale  out, optional: whether a new bookmark should be made of the result
    /// @return nothing if the data is no bookmark (error 259) or the file is gone (error 4)
    [[nodiscard]] static std::optional<NSURL>
    URLByResolvingBookmarkData(const NSData& bookmark,
                               BookmarkResolutionOptions options = BookmarkResolutionOptions::None,
                               bool* bookmarkDataIsStale = nullptr, NSError* error = nullptr);

    /// Bookmark data of what is there now; nothing where no file is (error 260).
    [[nodiscard]] std::optional<NSData> bookmarkData(BookmarkCreationOptions options = BookmarkCreationOptions::None,
                                                     NSError* error = nullptr) const;

    /// Bookmark data that names the path alone, whether or not a file is there.
    NSData bookmarkDataOfPathAlone() const;

    /// "file://", the host if there was one, and the path, percent-escaped; a folder's ends in "/".
    std::string absoluteString() const;
    /// Decoded, without a trailing "/" but for "/" itself.
    const std::string& path() const { return path_; }
    bool hasDirectoryPath() const { return isDirectory_; }
    std::string lastPathComponent() const;
    std::string pathExtension() const;

    /// Several segments are allowed; nothing is normalised. A trailing "/" means a folder; without one the file system
    /// is asked.
    NSURL URLByAppendingPathComponent(std::string_view component) const;
    NSURL URLByAppendingPathComponent(std::string_view component, bool isDirectory) const;
    NSURL URLByDeletingLastPathComponent() const;
    NSURL URLByDeletingPathExtension() const;
    NSURL URLByAppendingPathExtension(std::string_view extension) const;

    /// Security scope does not exist here: nothing happens, and the answer is true.
    bool startAccessingSecurityScopedResource() const { return true; }

    /// Equal absolute strings.
    friend bool operator==(const NSURL&, const NSURL&) = default;

private:
    NSURL(std::string path, bool isDirectory);
    NSURL withPath(std::string path, bool isDirectory) const;

    std::string host_;
    std::string path_;
    bool isDirectory_ = false;
};

} // namespace platform
