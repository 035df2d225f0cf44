#include "platform/bytes/BoxWalker.h"

#include "platform/bytes/ByteReader.h"

#include <array>

namespace platform {

std::optional<Box> BoxWalker::boxAt(int64_t offset, int64_t limit) const
{
    constexpr int64_t kHeaderSize = 8;
    constexpr int64_t kLargeHeaderSize = 16;
    std::array<uint8_t, kLargeHeaderSize> header{};
    const int64_t room = limit - offset;
    if (room < kHeaderSize || !read(offset, std::span(header).first(kHeaderSize)))
        return std::nullopt;
    uint64_t size = bigEndianNumber(std::span(header).first(4));
    int64_t headerSize = kHeaderSize;
    // 1 says that the size follows in 64 bits, 0 that the box reaches to the end.
    if (size == 1) {
        if (!read(offset, header))
            return std::nullopt;
        headerSize = kLargeHeaderSize;
        size = bigEndianNumber(std::span(header).last(8));
    } else if (size == 0) {
        size = static_cast<uint64_t>(room);
    }
    if (size < static_cast<uint64_t>(headerSize) || size > static_cast<uint64_t>(room))
        return std::nullopt;
    const auto type = static_cast<uint32_t>(bigEndianNumber(std::span(header).subspan(4, 4)));
    return Box{type, offset + headerSize, offset + static_cast<int64_t>(size)};
}

int64_t BoxWalker::forEachBox(int64_t begin, int64_t end, const Visit& visit) const
{
    if (depth_ == kMaxDepth)
        return begin;
    ++depth_;
    int64_t offset = begin;
    while (offset < end && boxesLeft_ > 0) {
        const auto box = boxAt(offset, end);
        if (!box)
            break;
        --boxesLeft_;
        visit(*box);
        offset = box->end;
    }
    --depth_;
    return offset;
}

std::optional<Box> BoxWalker::find(uint32_t type, int64_t begin, int64_t end) const
{
    for (auto box = boxAt(begin, end); box && boxesLeft_ > 0; box = boxAt(box->end, end)) {
        --boxesLeft_;
        if (box->type == type)
            return box;
    }
    return std::nullopt;
}

} // namespace platform
