#pragma once

#include <stillora/Error.h>

#include "platform/foundation/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace stillora {

/// A file as it was when it was looked at: another one, or one that was written since, differs.
struct FileStamp {
    int64_t bytes = 0;
    /// In nanoseconds since 1970.
    int64_t modified = 0;

    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// Reads a manifest line by line in little memory, however long it is. One thread.
class ManifestReader final {
public:
    /// More bytes make no line.
    static constexpr size_t kLongestLine = 4 << 20;

    struct Line {
        /// Counted from 1.
        size_t number = 0;
        /// Of its first byte in the file.
        int64_t offset = 0;
        /// Without its end; valid until the next one is read. Nothing for a line that is too long.
        std::optional<std::string_view> text;

        bool isBlank() const { return text && text->find_first_not_of(" \t\r") == std::string_view::npos; }
    };

    /// @return an error that names the file if it cannot be read
    static Result<ManifestReader> open(const std::filesystem::path& file);

    /// As the file was when it was opened.
    const FileStamp& stamp() const { return stamp_; }

    /// Goes on reading at a line of which is known where it begins.
    void seek(size_t number, int64_t offset);

    /// The next line; nothing at the end, and where the file cannot be read on, see `failure`.
    std::optional<Line> next();
    /// What kept the file from being read to its end; 0 if nothing did.
    int failure() const { return failure_; }

private:
    ManifestReader(platform::FileDescriptor file, FileStamp stamp) : file_(std::move(file)), stamp_(stamp) {}

    bool fill();

    platform::FileDescriptor file_;
    FileStamp stamp_;
    std::string buffer_;
    /// In the buffer.
    size_t place_ = 0;
    /// Of the buffer in the file.
    int64_t bufferOffset_ = 0;
    size_t number_ = 0;
    int failure_ = 0;
};

} // namespace stillora
