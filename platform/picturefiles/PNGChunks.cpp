#include "platform/picturefiles/PNGChunks.h"

#include "platform/bytes/ByteReader.h"

#include <array>

namespace platform {

bool forEachPNGChunk(const ImageFile& file, const std::function<bool(const PNGChunk& chunk)>& take)
{
    constexpr size_t kSignature = 8;
    // Length and name; a checksum follows the content.
    constexpr size_t kHead = 8;
    constexpr size_t kFrame = kHead + 4;
    constexpr size_t kStart = 32;
    constexpr int kMostChunks = 1 << 16;
    size_t offset = kSignature;
    for (int i = 0; i < kMostChunks; ++i) {
        std::array<uint8_t, kHead + kStart> bytes{};
        if (file.readAt(offset, bytes.data(), bytes.size()) < static_cast<ssize_t>(kHead))
            return true;
        const PNGChunk chunk{*bigEndian32(bytes, 4), offset + kHead, *bigEndian32(bytes, 0),
                             std::span(bytes).subspan(kHead)};
        if (!take(chunk))
            return true;
        offset += kFrame + chunk.length;
    }
    return false;
}

} // namespace platform
