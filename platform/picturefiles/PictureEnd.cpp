#include "platform/picturefiles/PictureEnd.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace platform {

namespace {

/// Nearly all that is added behind a picture is shorter.
constexpr size_t kTailBytes = size_t{64} << 10;
constexpr size_t kPieceBytes = size_t{1} << 20;

/// Looks for the mark in the bytes from `start` to `end`, a piece at a time.
bool hasMarkBetween(const ImageFile& file, size_t start, size_t end, std::span<const uint8_t> mark)
{
    std::vector<uint8_t> piece(std::min(kPieceBytes, end - start));
    size_t kept = 0;
    while (start < end) {
        const ssize_t got = file.readAt(start, piece.data() + kept, std::min(piece.size() - kept, end - start));
        if (got <= 0)
            return false;
        const auto filled = piece.begin() + static_cast<ssize_t>(kept) + got;
        if (std::search(piece.begin(), filled, std::boyer_moore_horspool_searcher(mark.begin(), mark.end())) != filled)
            return true;
        start += static_cast<size_t>(got);
        // A mark may lie on the edge between two pieces.
        kept = std::min(mark.size() - 1, static_cast<size_t>(filled - piece.begin()));
        std::copy(filled - static_cast<ssize_t>(kept), filled, piece.begin());
    }
    return false;
}

} // namespace

bool hasMarkBehind(const ImageFile& file, size_t start, std::span<const uint8_t> mark)
{
    const size_t end = file.length();
    if (start + mark.size() > end)
        return false;
    const size_t tail = end - std::min(kTailBytes, end - start);
    return hasMarkBetween(file, tail, end, mark) ||
           hasMarkBetween(file, start, std::min(end, tail + mark.size() - 1), mark);
}

bool hasWholeGIFPicture(ImageFile& file)
{
    constexpr size_t kScreenBytes = 13;
    constexpr uint8_t kExtension = 0x21;
    constexpr uint8_t kPicture = 0x2C;
    const auto bytes = file.all();
    size_t at = kScreenBytes;
    const auto byte = [&](size_t offset) { return offset < bytes.size() ? int{bytes[offset]} : -1; };
    const auto colorTableBytes = [](int flags) {
        return flags >= 0 && (flags & 0x80) != 0 ? size_t{3} << ((flags & 7) + 1) : 0;
    };
    // Blocks of data, each behind its length, and last one of none.
    const auto skipBlocks = [&] {
        while (byte(at) > 0)
            at += 1 + static_cast<size_t>(byte(at));
        return byte(at++) == 0;
    };
    at += colorTableBytes(byte(10));
    while (byte(at) == kExtension) {
        at += 2;
        if (!skipBlocks())
            return false;
    }
    if (byte(at) != kPicture)
        return false;
    // The picture's place, its colours, and the length of its first codes.
    constexpr size_t kDescriptorBytes = 10;
    at += kDescriptorBytes + colorTableBytes(byte(at + kDescriptorBytes - 1)) + 1;
    if (!skipBlocks())
        return false;
    // Room that was never written looks like a last block.
    constexpr uint8_t kEnd = 0x3B;
    const int next = byte(at);
    return next < 0 || next == kExtension || next == kPicture || next == kEnd;
}

} // namespace platform
