#include "platform/media/ChunkTags.h"

#include "platform/foundation/NSData.h"
#include "platform/media/ID3Tag.h"
#include "platform/media/TagText.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace platform {
namespace {

/// Type of the file, its length, type of its content.
constexpr int64_t kFileHeaderSize = 12;
constexpr int64_t kChunkHeaderSize = 8;
constexpr int kMaxChunks = 1 << 16;
constexpr int64_t kMaxTextBytes = 64 * 1024;

enum class ByteOrder { Big, Little };

uint64_t numberOf(std::span<const uint8_t> bytes, ByteOrder order)
{
    if (order == ByteOrder::Big)
        return bigEndianNumber(bytes);
    uint64_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i)
        value = value << 8 | bytes[i - 1];
    return value;
}

/// Calls `visit` with name, begin and end of each chunk. The last one may be cut off.
template <typename Visit>
void forEachChunk(const BoxFile& file, int64_t begin, int64_t end, ByteOrder order, int& chunksLeft, Visit visit)
{
    // Of a file beyond 4 GB, whose chunk of sound does not tell its length itself.
    int64_t lengthOfSound = -1;
    for (int64_t offset = begin; end - offset >= kChunkHeaderSize && chunksLeft > 0; --chunksLeft) {
        std::array<uint8_t, kChunkHeaderSize> header{};
        if (!file.read(offset, header))
            return;
        const std::string name(header.begin(), header.begin() + 4);
        auto size = static_cast<int64_t>(numberOf(std::span(header).last(4), order));
        offset += kChunkHeaderSize;
        if (std::array<uint8_t, 16> lengths{}; name == "ds64" && size >= 16 && file.read(offset, lengths))
            lengthOfSound =
                static_cast<int64_t>(std::min<uint64_t>(numberOf(std::span(lengths).last(8), order), INT64_MAX));
        if (name == "data" && size == UINT32_MAX && lengthOfSound >= 0)
            size = lengthOfSound;
        size = std::min(size, end - offset);
        visit(std::string_view(name), offset, offset + size);
        offset += size;
        // Chunks begin at even places.
        offset += (offset - begin) % 2;
    }
}

void readText(const BoxFile& file, int64_t begin, int64_t end, std::string_view keySpace, std::string_view key,
              std::string (*otherwise)(std::span<const uint8_t>), TagItems& items)
{
    if (!items.wants(keySpace, key))
        return;
    NSData bytes(static_cast<size_t>(std::min(end - begin, kMaxTextBytes)));
    if (file.read(begin, bytes))
        items.addText(keySpace, key, textFromUTF8Or(otherwise, bytes));
}

} // namespace

void readWAVTags(const BoxFile& file, TagItems& items)
{
    int chunksLeft = kMaxChunks;
    forEachChunk(file, kFileHeaderSize, file.size(), ByteOrder::Little, chunksLeft,
                 [&](std::string_view name, int64_t begin, int64_t end) {
                     std::array<uint8_t, 4> kind{};
                     if (name == "id3 " || name == "ID3 ")
                         readID3v2Tag(file, begin, end, items);
                     if (name != "LIST" || end - begin < 4 || !file.read(begin, kind) ||
                         !std::equal(kind.begin(), kind.end(), "INFO"))
                         return;
                     forEachChunk(file, begin + 4, end, ByteOrder::Little, chunksLeft,
                                  [&](std::string_view key, int64_t textBegin, int64_t textEnd) {
                                      readText(file, textBegin, textEnd, kAVMetadataKeySpaceRIFFInfo, key,
                                               textFromLatin1, items);
                                  });
                 });
}

void readAIFFTags(const BoxFile& file, TagItems& items)
{
    int chunksLeft = kMaxChunks;
    forEachChunk(file, kFileHeaderSize, file.size(), ByteOrder::Big, chunksLeft,
                 [&](std::string_view name, int64_t begin, int64_t end) {
                     if (name == "ID3 " || name == "id3 ")
                         readID3v2Tag(file, begin, end, items);
                     else
                         readText(file, begin, end, kAVMetadataKeySpaceAIFF, name, textFromMacRoman, items);
                 });
}

} // namespace platform
