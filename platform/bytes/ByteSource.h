#pragma once

#include "platform/foundation/FileDescriptor.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <sys/types.h>

namespace platform {

/// Bytes that are read piece by piece, whatever lengths they claim.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    virtual int64_t size() const = 0;
    /// All of the bytes from `offset` on that there is room for, or false, and then the room holds anything.
    virtual bool read(int64_t offset, std::span<uint8_t> bytes) const = 0;
};

/// Which regular file stands under a name, and since when: another where it was exchanged or written to.
struct FileState {
    uint64_t device = 0;
    uint64_t number = 0;
    int64_t size = 0;
    /// When it was written to: seconds, and nanoseconds behind them.
    int64_t seconds = 0;
    int64_t nanoseconds = 0;

    /// All zero for anything but a regular file.
    static FileState ofFile(const std::string& path);

    friend bool operator==(const FileState&, const FileState&) = default;
};

/// A regular file, opened once. Anything else, and what cannot be opened, has the size 0; nothing is waited for. Any
/// thread.
class FileBytes final : public ByteSource {
public:
    /// Where the file cannot be opened, `errno` says why.
    explicit FileBytes(const std::string& path);

    bool isOpen() const { return static_cast<bool>(file_); }
    /// Whether it may stay open for long: of the files that the process may have open, more than half are left.
    bool leavesRoom() const;
    /// As it was when it was opened.
    const FileState& state() const { return state_; }
    int64_t size() const override { return state_.size; }
    bool read(int64_t offset, std::span<uint8_t> bytes) const override;
    /// As many bytes as there are at a place.
    /// @return how many; 0 at the end, -1 on failure, which `errno` tells
    ssize_t readSome(int64_t offset, std::span<uint8_t> bytes) const;

private:
    const FileDescriptor file_;
    FileState state_;
};

using FileBytesPtr = std::shared_ptr<const FileBytes>;

/// Bytes of somebody else's, who keeps them.
class MemoryBytes final : public ByteSource {
public:
    explicit MemoryBytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    int64_t size() const override { return static_cast<int64_t>(bytes_.size()); }
    bool read(int64_t offset, std::span<uint8_t> bytes) const override;

private:
    const std::span<const uint8_t> bytes_;
};

} // namespace platform
