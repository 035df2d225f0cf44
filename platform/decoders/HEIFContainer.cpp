#include "platform/decoders/HEIFContainer.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

namespace platform {

namespace {

// Pictures of thousands of tiles stay far below this.
constexpr size_t kMaxMetaBytes = size_t{16} << 20;

/// Calls `visit` with the type and content of each box, until it answers false or a box is damaged.
void forEachBox(std::span<const uint8_t> bytes,
                const std::function<bool(std::string_view type, std::span<const uint8_t> content)>& visit)
{
    size_t offset = 0;
    while (const auto length32 = bigEndian32(bytes, offset)) {
        uint64_t length = *length32;
        size_t header = 8;
        if (length == 1) {
            const auto high = bigEndian32(bytes, offset + 8);
            const auto low = bigEndian32(bytes, offset + 12);
            if (!high || !low)
                return;
            length = uint64_t{*high} << 32 | *low;
            header = 16;
        } else if (length == 0) {
            length = bytes.size() - offset;
        }
        if (length < header || length > bytes.size() - offset)
            return;
        const auto box = bytes.subspan(offset, static_cast<size_t>(length));
        const std::string_view type(reinterpret_cast<const char*>(box.data()) + 4, 4);
        if (!visit(type, box.subspan(header)))
            return;
        offset += static_cast<size_t>(length);
    }
}

/// The top level's "meta" box, of which no more is read than lies before its end.
std::span<const uint8_t> metaBox(ImageFile& file)
{
    size_t offset = 0;
    while (true) {
        const auto bytes = file.first(offset + 16);
        const auto length32 = bigEndian32(bytes, offset);
        if (!length32 || bytes.size() < offset + 8)
            return {};
        uint64_t length = *length32;
        size_t header = 8;
        if (length == 1 && bytes.size() >= offset + 16) {
            length = uint64_t{*bigEndian32(bytes, offset + 8)} << 32 | *bigEndian32(bytes, offset + 12);
            header = 16;
        }
        if (length < header || length > file.length() - offset)
            return {};
        const std::string_view type(reinterpret_cast<const char*>(bytes.data()) + offset + 4, 4);
        if (type == "meta") {
            if (length > kMaxMetaBytes || length < header + 4)
                return {};
            const auto whole = file.first(offset + static_cast<size_t>(length));
            // Version and flags come first.
            return whole.size() < offset + length
                       ? std::span<const uint8_t>{}
                       : whole.subspan(offset + header + 4, static_cast<size_t>(length) - header - 4);
        }
        offset += static_cast<size_t>(length);
    }
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

HEIFColors readHEIFColors(ImageFile& file)
{
    std::optional<uint32_t> item;
    std::vector<std::span<const uint8_t>> associations;
    std::vector<std::pair<size_t, HEIFColors>> stated;
    forEachBox(metaBox(file), [&](std::string_view type, std::span<const uint8_t> content) {
        if (type == "pitm")
            item = primaryItem(content);
        if (type != "iprp")
            return true;
        forEachBox(content, [&](std::string_view innerType, std::span<const uint8_t> inner) {
            if (innerType == "ipma")
                associations.push_back(inner);
            if (innerType != "ipco")
                return true;
            size_t number = 0;
            forEachBox(inner, [&](std::string_view propertyType, std::span<const uint8_t> property) {
                ++number;
                const auto primaries = bigEndian16(property, 4);
                const auto transfer = bigEndian16(property, 6);
                const std::string_view kind(reinterpret_cast<const char*>(property.data()),
                                            std::min<size_t>(property.size(), 4));
                if (propertyType == "colr" && kind == "nclx" && primaries && transfer)
                    stated.push_back({number, {*primaries, *transfer}});
                return true;
            });
            return true;
        });
        return true;
    });
    if (item)
        for (const auto association : associations) {
            const auto properties = propertiesOfItem(association, *item);
            for (const auto& [number, colors] : stated)
                if (properties.contains(number))
                    return colors;
        }
    return stated.empty() ? HEIFColors{} : stated.front().second;
}

} // namespace platform
