#pragma once

#include "platform/foundation/FileDescriptor.h"

#include <array>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <span>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

/// A box's or chunk's type of four characters as a number.
constexpr uint32_t fourCharacterCode(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

/// The bytes as one number; at most eight.
inline uint64_t bigEndianNumber(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

/// A box's type and where its content lies.
struct Box {
    uint32_t type = 0;
    int64_t begin = 0;
    int64_t end = 0;

    int64_t size() const { return end - begin; }
};

/// A regular file that is read piece by piece, whatever lengths it claims. Anything else has the size 0.
class BoxFile final {
public:
    explicit BoxFile(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        struct stat status {};
        if (file_ && fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode))
            size_ = status.st_size;
    }

    int64_t size() const { return size_; }

    /// All of the bytes or false.
    bool read(int64_t offset, std::span<uint8_t> bytes) const
    {
        return pread(file_.get(), bytes.data(), bytes.size(), offset) == static_cast<ssize_t>(bytes.size());
    }

    /// The box of a QuickTime or MPEG-4 file that starts at `offset` and ends at `limit` or before.
    std::optional<Box> boxAt(int64_t offset, int64_t limit) const
    {
        std::array<uint8_t, 16> header{};
        if (limit - offset < 8 || !read(offset, std::span(header).first(8)))
            return std::nullopt;
        auto size = static_cast<int64_t>(bigEndianNumber(std::span(header).first(4)));
        int64_t headerSize = 8;
        if (size == 1) {
            if (limit - offset < 16 || !read(offset, header))
                return std::nullopt;
            headerSize = 16;
            const uint64_t large = bigEndianNumber(std::span(header).last(8));
            if (large > static_cast<uint64_t>(limit - offset))
                return std::nullopt;
            size = static_cast<int64_t>(large);
        } else if (size == 0) {
            size = limit - offset;
        }
        if (size < headerSize || size > limit - offset)
            return std::nullopt;
        const auto type = static_cast<uint32_t>(bigEndianNumber(std::span(header).subspan(4, 4)));
        return Box{type, offset + headerSize, offset + size};
    }

    /// Calls `visit` with each box inside; a broken one ends the walk.
    template <typename Visit>
    void forEachBox(int64_t begin, int64_t end, Visit visit) const
    {
        for (int64_t offset = begin; offset < end && boxesLeft_ > 0; --boxesLeft_) {
            const auto box = boxAt(offset, end);
            if (!box)
                return;
            visit(*box);
            offset = box->end;
        }
    }

private:
    const FileDescriptor file_;
    int64_t size_ = 0;
    // Files of many fragments have thousands of boxes; more than this would only be read to waste time.
    mutable int boxesLeft_ = 1 << 20;
};

} // namespace platform
