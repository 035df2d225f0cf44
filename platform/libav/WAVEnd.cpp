#include "platform/libav/WAVEnd.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"

#include <array>
#include <span>

namespace platform {

namespace {

/// No file that is meant well has as many.
constexpr int kMaxChunks = 1 << 16;
constexpr int64_t kMaxListBytes = int64_t{16} << 20;

} // namespace

int64_t endOfWAVFile(const ByteSource& file)
{
    std::array<uint8_t, 12> head{};
    if (!file.read(0, head) || bigEndian32(head, 8) != fourCharacterCode("WAVE"))
        return INT64_MAX;
    std::array<uint8_t, 24> chunk{};
    int64_t longSize = 0;
    int64_t offset = 12;
    for (int i = 0; i < kMaxChunks; ++i) {
        if (!file.read(offset, std::span(chunk).first(8)))
            return INT64_MAX;
        const uint32_t type = *bigEndian32(chunk, 0);
        int64_t size = *littleEndian32(chunk, 4);
        // Of more than 4 GB of sound a chunk in front tells the length.
        if (type == fourCharacterCode("ds64") && file.read(offset, chunk))
            longSize = static_cast<int64_t>(uint64_t{*littleEndian32(chunk, 20)} << 32 | *littleEndian32(chunk, 16));
        if (type == fourCharacterCode("data") && size == UINT32_MAX)
            size = longSize;
        const int64_t begin = offset + 8;
        if (type == fourCharacterCode("LIST") && (size > kMaxListBytes || size > file.size() - begin))
            return offset;
        // Chunks begin at even places.
        if (size < 0 || size > file.size() - begin)
            return INT64_MAX;
        offset = begin + size + size % 2;
    }
    return offset;
}

} // namespace platform
