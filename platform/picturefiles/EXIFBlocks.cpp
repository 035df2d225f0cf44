#include "platform/picturefiles/EXIFBlocks.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/picturefiles/HEIFItems.h"
#include "platform/picturefiles/PNGChunks.h"
#include "platform/picturefiles/TIFFStructure.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

namespace platform {

namespace {

using Bytes = std::vector<uint8_t>;

// Written by cameras it has less than 64 KB.
constexpr uint64_t kLongestBlock = uint64_t{16} << 20;
// Files of more parts before the pixels are made to keep readers busy.
constexpr int kMostParts = 1 << 16;

/// Of a structure that begins with the first of these bytes.
bool isTangled(std::span<const uint8_t> bytes)
{
    constexpr std::array<uint16_t, 3> kFolders = {0x8769, 0x8825, 0xA005};
    // Of each picture in a block, of which there may be two.
    constexpr size_t kMostFolders = 2 * kFolders.size();
    const MemoryBytes source(bytes);
    const TIFFStructure structure(source);
    std::vector<uint32_t> folders;
    if (const auto first = structure.firstFolder())
        folders.push_back(*first);
    for (size_t i = 0; i < folders.size() && folders.size() <= kMostFolders; ++i)
        structure.forEachEntry(folders[i], [&](uint16_t tag, size_t entry) {
            if (std::ranges::find(kFolders, tag) != kFolders.end())
                folders.push_back(structure.integer(entry).value_or(0));
        });
    return folders.size() > kMostFolders;
}

/// Formats put different bytes in front of the structure.
bool isTangledBlock(std::span<const uint8_t> block)
{
    constexpr std::array<std::array<uint8_t, 4>, 2> kMarks = {{{'I', 'I', 42, 0}, {'M', 'M', 0, 42}}};
    return std::ranges::any_of(kMarks, [block](const auto& mark) {
        const auto found = std::search(block.begin(), block.end(), mark.begin(), mark.end());
        return found != block.end() && isTangled({found, block.end()});
    });
}

/// @param length  as the file claims
/// @return the bytes that there are; nothing where the claim is beyond all that is meant well
std::optional<Bytes> blockAt(const ImageFile& file, uint64_t offset, uint64_t length)
{
    length = std::min<uint64_t>(length, file.length() - std::min<uint64_t>(offset, file.length()));
    if (length > kLongestBlock)
        return std::nullopt;
    Bytes bytes(length);
    const ssize_t got = file.readAt(offset, bytes.data(), bytes.size());
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

bool isTangledAt(const ImageFile& file, uint64_t offset, uint64_t length)
{
    const auto block = blockAt(file, offset, length);
    return !block || isTangledBlock(*block);
}

bool isTangledPNG(const ImageFile& file)
{
    bool isTangled = false;
    const bool isUsual = forEachPNGChunk(file, [&](const PNGChunk& chunk) {
        isTangled = chunk.name == fourCharacterCode("eXIf") && isTangledAt(file, chunk.begin, chunk.length);
        return !isTangled && chunk.name != fourCharacterCode("IDAT");
    });
    return isTangled || !isUsual;
}

bool isTangledWebP(const ImageFile& file)
{
    constexpr size_t kHead = 8;
    size_t offset = 12;
    for (int part = 0; part < kMostParts; ++part) {
        std::array<uint8_t, kHead> head{};
        if (file.readAt(offset, head.data(), head.size()) < static_cast<ssize_t>(kHead))
            return false;
        const size_t length = *littleEndian32(head, 4);
        if (*bigEndian32(head, 0) == fourCharacterCode("EXIF") && isTangledAt(file, offset + kHead, length))
            return true;
        offset += kHead + length + length % 2;
    }
    return true;
}

bool isTangledHEIF(const ImageFile& file)
{
    const BoxWalker boxes(file);
    bool isTangled = false;
    int parts = 0;
    boxes.forEachBox(0, boxes.size(), [&](const Box& meta) {
        if (++parts > kMostParts)
            isTangled = true;
        if (meta.type != fourCharacterCode("meta") || isTangled)
            return;
        const HEIFItems items(file, meta);
        isTangled =
            meta.size() > HEIFItems::kMostBytes || std::ranges::any_of(items.items(), [&](const auto& numbered) {
                const HEIFItems::Item& item = numbered.second;
                if (item.isAmbiguous)
                    return true;
                if (item.type != fourCharacterCode("Exif"))
                    return false;
                const auto block = items.contentOf(item, kLongestBlock);
                return (block.empty() && !item.extents.empty()) || isTangledBlock(block);
            });
    });
    return isTangled;
}

} // namespace

bool hasTangledEXIF(const ImageFile& file, std::string_view format)
{
    if (format == "png")
        return isTangledPNG(file);
    if (format == "webp")
        return isTangledWebP(file);
    return (format == "heic" || format == "avif") && isTangledHEIF(file);
}

} // namespace platform
