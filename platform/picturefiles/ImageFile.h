#pragma once

#include "platform/bytes/ByteSource.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <sys/types.h>

namespace platform {

/// A file that is opened once and whose bytes are read once, as far as they are asked for. Read, not mapped: a file
/// that another program cuts off meanwhile must not end this process. One thread at a time.
class ImageFile final : public ByteSource {
public:
    /// The longest file taken for a picture.
    static constexpr size_t kMaxBytes = size_t{1} << 31;

    /// @return null if it cannot be opened, is no regular file or too long; `error` says which
    [[nodiscard]] static std::unique_ptr<ImageFile> open(const NSURL& url, NSError* error);

    /// Bytes that are there already; nothing if they are too long for a picture.
    [[nodiscard]] static std::unique_ptr<ImageFile> withData(NSData data, std::string name, NSError* error);

    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    /// The file's last path component, for messages.
    const std::string& name() const { return name_; }
    size_t length() const { return length_; }
    int64_t size() const override { return static_cast<int64_t>(length_); }

    /// The first `count` bytes, fewer where the file ends or cannot be read; 64 bytes behind them may be read and are
    /// zero once the whole file has been asked for.
    std::span<const uint8_t> first(size_t count);
    std::span<const uint8_t> all() { return first(length_); }

    /// Reads at a place without keeping the bytes.
    /// @return bytes read, 0 at the end, -1 on failure
    ssize_t readAt(size_t offset, uint8_t* bytes, size_t count) const;
    bool read(int64_t offset, std::span<uint8_t> bytes) const override
    {
        return readAt(static_cast<size_t>(offset), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }

private:
    ImageFile(FileDescriptor file, size_t length, std::string name);
    ImageFile(NSData data, std::string name);

    // None for bytes that are there already.
    const FileDescriptor file_;
    const size_t length_;
    const std::string name_;
    // With padding; empty for a file.
    const NSData data_;
    Handle<uint8_t, std::free> bytes_;
    size_t read_ = 0;
    bool ended_ = false;
};

} // namespace platform
