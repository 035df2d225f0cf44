#include "platform/picturefiles/HEIFContainer.h"

#include "platform/bytes/ByteReader.h"
#include "platform/picturefiles/HEIFItems.h"

#include <optional>

namespace platform {
namespace {

std::optional<HEIFColors> statedBy(const HEIFItems& items, const Box& property)
{
    constexpr int64_t kLongest = 64;
    if (property.type != fourCharacterCode("colr"))
        return std::nullopt;
    const auto content = items.contentOf(property, kLongest);
    if (content.size() < 8 || bigEndian32(content, 0) != fourCharacterCode("nclx"))
        return std::nullopt;
    return HEIFColors{*bigEndian16(content, 4), *bigEndian16(content, 6)};
}

} // namespace

HEIFColors readHEIFColors(const ImageFile& file)
{
    const HEIFItems items(file);
    if (const auto* const primary = items.primary() ? items.item(*items.primary()) : nullptr)
        for (const auto& property : primary->properties)
            if (const auto colors = statedBy(items, property.box))
                return *colors;
    for (const auto& property : items.properties())
        if (const auto colors = statedBy(items, property))
            return *colors;
    return {};
}

} // namespace platform
