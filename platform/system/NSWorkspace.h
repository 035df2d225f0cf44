#pragma once

#include "platform/files/NSURL.h"
#include "platform/graphics/NSImage.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// What the desktop knows about kinds of files. Any thread.
class NSWorkspace final {
public:
    static NSWorkspace& sharedWorkspace();

    /// A picture of 32 x 32 points that stands for files of this type.
    /// @param type  a file name extension without the dot ("mov")
    /// @return never null; a plain document for a type that is not known
    NSImagePtr iconForFileType(std::string_view type) const;

    /// The picture for a file by its path; a path without an extension of a known type gives the plain document.
    NSImagePtr iconForFile(std::string_view path) const;

    /// The MIME type of files with an extension; empty where none is known.
    static std::string typeOfExtension(std::string_view fileExtension);

    /// The MIME type of a file, by its content, then by its extension ("image/jpeg").
    /// @return nothing if the file cannot be read or is a folder
    [[nodiscard]] std::optional<std::string> typeOfFile(const NSURL& url, NSError* error = nullptr) const;

    /// Whether a MIME type is one of pictures.
    static bool conformsToImage(std::string_view type) { return type.starts_with("image/"); }

private:
    NSWorkspace() = default;
};

} // namespace platform
