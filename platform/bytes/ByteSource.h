#pragma once

#include "platform/foundation/FileDescriptor.h"

#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// Bytes that are read piece by piece, whatever lengths they claim.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    virtual int64_t size() const = 0;
    /// All of the bytes from `offset` on that there is room for, or false, and then the room holds anything.
    virtual bool read(int64_t offset, std::span<uint8_t> bytes) const = 0;
};

/// A regular file. Anything else, and what cannot be opened, has the size 0; nothing is waited for.
class FileBytes final : public ByteSource {
public:
    explicit FileBytes(const std::string& path);

    int64_t size() const override { return size_; }
    bool read(int64_t offset, std::span<uint8_t> bytes) const override;

private:
    const FileDescriptor file_;
    int64_t size_ = 0;
};

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
