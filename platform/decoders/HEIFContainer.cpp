#include "platform/decoders/HEIFContainer.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"

#include <array>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace platform {

namespace {

// Pictures of thousands of tiles stay far below this.
constexpr int64_t kMaxMetaBytes = int64_t{16} << 20;

/// Empty where the file is cut off.
std::vector<uint8_t> contentOf(const BoxWalker& boxes, const Box& box)
{
    std::vector<uint8_t> content(static_cast<size_t>(box.size()));
    if (!boxes.read(box.begin, content))
        content.clear();
    return content;
}

std::optional<uint32_t> itemNumber(std::span<const uint8_t> bytes, size_t offset, bool isLong)
{
    if (isLong)
        return bigEndian32(bytes, offset);
    return bigEndian16(bytes, offset);
}

std::optional<uint32_t> primaryItem(std::span<const uint8_t> pitm)
{
    if (pitm.empty())
        return std::nullopt;
    return itemNumber(pitm, 4, pitm[0] != 0);
}

/// The one-based numbers of the properties that an item has.
std::set<size_t> propertiesOfItem(std::span<const uint8_t> ipma, uint32_t item)
{
    std::set<size_t> properties;
    const auto count = bigEndian32(ipma, 4);
    if (!count)
        return properties;
    const bool hasLongItems = ipma[0] >= 1;
    const bool hasLongNumbers = (ipma[3] & 1) != 0;
    size_t offset = 8;
    for (uint32_t i = 0; i < *count; ++i) {
        const auto number = itemNumber(ipma, offset, hasLongItems);
        offset += hasLongItems ? 4 : 2;
        if (!number || offset >= ipma.size())
            break;
        const unsigned associations = ipma[offset++];
        for (unsigned j = 0; j < associations; ++j) {
            std::optional<uint16_t> property;
            if (hasLongNumbers) {
                property = bigEndian16(ipma, offset);
            } else if (offset < ipma.size()) {
                // The highest bit says that a reader must know the property.
                property = static_cast<uint16_t>((ipma[offset] & 0x7F) | (ipma[offset] & 0x80) << 8);
            }
            offset += hasLongNumbers ? 2 : 1;
            if (!property)
                return properties;
            if (*number == item)
                properties.insert(*property & 0x7FFFu);
        }
    }
    return properties;
}

} // namespace

HEIFColors readHEIFColors(const ImageFile& file)
{
    const BoxWalker boxes(file);
    // Version and flags come first.
    constexpr int64_t kFlags = 4;
    const auto meta = boxes.find(fourCharacterCode("meta"), 0, boxes.size());
    if (!meta || meta->size() < kFlags || meta->size() > kMaxMetaBytes)
        return {};
    std::optional<uint32_t> item;
    std::vector<std::vector<uint8_t>> associations;
    std::vector<std::pair<size_t, HEIFColors>> stated;
    const auto visitProperties = [&](const Box& box) {
        size_t number = 0;
        boxes.forEachBox(box.begin, box.end, [&](const Box& property) {
            ++number;
            std::array<uint8_t, 8> color{};
            if (property.type == fourCharacterCode("colr") && property.size() >= 8 &&
                boxes.read(property.begin, color) && bigEndian32(color, 0) == fourCharacterCode("nclx"))
                stated.push_back({number, {*bigEndian16(color, 4), *bigEndian16(color, 6)}});
        });
    };
    boxes.forEachBox(meta->begin + kFlags, meta->end, [&](const Box& box) {
        if (box.type == fourCharacterCode("pitm"))
            item = primaryItem(contentOf(boxes, box));
        if (box.type != fourCharacterCode("iprp"))
            return;
        boxes.forEachBox(box.begin, box.end, [&](const Box& inner) {
            if (inner.type == fourCharacterCode("ipma"))
                associations.push_back(contentOf(boxes, inner));
            if (inner.type == fourCharacterCode("ipco"))
                visitProperties(inner);
        });
    });
    if (item)
        for (const auto& association : associations) {
            const auto properties = propertiesOfItem(association, *item);
            for (const auto& [number, colors] : stated)
                if (properties.contains(number))
                    return colors;
        }
    return stated.empty() ? HEIFColors{} : stated.front().second;
}

} // namespace platform
