#include "platform/picturefiles/HEIFPicture.h"

#include "platform/bytes/ByteReader.h"
#include "platform/picturefiles/HEIFItems.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {
namespace {

using Item = HEIFItems::Item;

struct Size {
    size_t width = 0;
    size_t height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

/// What can be shown without knowing more of it.
bool isHarmless(const HEIFItems::Property& property)
{
    static constexpr std::array kKnown = {
        fourCharacterCode("ispe"), fourCharacterCode("hvcC"), fourCharacterCode("av1C"),
        fourCharacterCode("colr"), fourCharacterCode("pixi"), fourCharacterCode("pasp"),
        fourCharacterCode("irot"), fourCharacterCode("clli"), fourCharacterCode("mdcv")};
    static constexpr std::array kChanging = {fourCharacterCode("clap"), fourCharacterCode("imir"),
                                             fourCharacterCode("a1op"), fourCharacterCode("lsel")};
    return std::ranges::find(kKnown, property.box.type) != kKnown.end() ||
           (!property.isEssential && std::ranges::find(kChanging, property.box.type) == kChanging.end());
}

std::optional<Size> sizeOf(const HEIFItems& items, const Item& item)
{
    constexpr int64_t kBytes = 12;
    const auto* const property = item.find(fourCharacterCode("ispe"));
    const auto content = property ? items.contentOf(property->box, kBytes) : std::vector<uint8_t>();
    const Size size{bigEndian32(content, 4).value_or(0), bigEndian32(content, 8).value_or(0)};
    return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
}

unsigned quarterTurnsOf(const HEIFItems& items, const Item& item)
{
    const auto* const property = item.find(fourCharacterCode("irot"));
    const auto content = property ? items.contentOf(property->box, 1) : std::vector<uint8_t>();
    return content.empty() ? 0 : content[0] & 3U;
}

std::optional<HEIFPicture::Codes> codesOf(const HEIFItems& items, const Item& item)
{
    constexpr int64_t kLongest = 64;
    for (const auto& property : item.properties) {
        if (property.box.type != fourCharacterCode("colr"))
            continue;
        const auto content = items.contentOf(property.box, kLongest);
        const auto matrix = bigEndian16(content, 8);
        if (content.size() > 10 && bigEndian32(content, 0) == fourCharacterCode("nclx"))
            return HEIFPicture::Codes{*matrix, (content[10] & 0x80) != 0};
    }
    return std::nullopt;
}

/// Whether another item holds how much of this one is seen through.
bool hasAlpha(const HEIFItems& items, uint32_t number)
{
    constexpr int64_t kLongest = 256;
    for (const auto& reference : items.references()) {
        if (reference.type != fourCharacterCode("auxl") ||
            std::ranges::find(reference.to, number) == reference.to.end())
            continue;
        const auto* const auxiliary = items.item(reference.from);
        const auto* const kind = auxiliary ? auxiliary->find(fourCharacterCode("auxC")) : nullptr;
        if (!kind)
            return true;
        const auto content = items.contentOf(kind->box, kLongest);
        const std::string_view name(reinterpret_cast<const char*>(content.data()), content.size());
        // Depths, and light for brighter screens, are named otherwise.
        if (name.find("auxiliary:alpha") != name.npos || name.find("auxid:1") != name.npos)
            return true;
    }
    return false;
}

/// The one property of a coded item that its decoder needs.
const HEIFItems::Property* configurationOf(const Item& item, HEIFPicture::Codec& codec)
{
    if (item.type == fourCharacterCode("hvc1")) {
        codec = HEIFPicture::Codec::HEVC;
        return item.find(fourCharacterCode("hvcC"));
    }
    codec = HEIFPicture::Codec::AV1;
    return item.type == fourCharacterCode("av01") ? item.find(fourCharacterCode("av1C")) : nullptr;
}

/// Adds a coded item, which has to be like those before it.
bool addTile(const HEIFItems& items, const Item& item, HEIFPicture& picture)
{
    constexpr int64_t kLongestConfiguration = 1 << 16;
    HEIFPicture::Codec codec{};
    const auto* const property = configurationOf(item, codec);
    const auto size = sizeOf(items, item);
    if (!property || !size || item.isProtected || item.isAmbiguous || item.extents.empty() ||
        !std::ranges::all_of(item.properties, isHarmless))
        return false;
    auto configuration = items.contentOf(property->box, kLongestConfiguration);
    if (configuration.empty())
        return false;
    if (picture.tiles.empty()) {
        picture.codec = codec;
        picture.configuration = std::move(configuration);
        picture.tileWidth = size->width;
        picture.tileHeight = size->height;
        if (!picture.codes)
            picture.codes = codesOf(items, item);
    } else if (codec != picture.codec || configuration != picture.configuration ||
               *size != Size{picture.tileWidth, picture.tileHeight}) {
        return false;
    }
    HEIFPicture::Tile tile;
    for (const auto& extent : item.extents)
        tile.push_back({extent.offset, extent.length});
    picture.tiles.push_back(std::move(tile));
    return true;
}

/// The item's own bytes say how many tiles lie beside each other; which they are is said by a reference.
bool addGrid(const HEIFItems& items, uint32_t number, const Item& grid, HEIFPicture& picture)
{
    constexpr int64_t kLongest = 12;
    const auto content = items.contentOf(grid, kLongest);
    const bool isLong = content.size() > 1 && (content[1] & 1) != 0;
    const auto reference = std::ranges::find_if(items.references(), [&](const HEIFItems::Reference& r) {
        return r.type == fourCharacterCode("dimg") && r.from == number;
    });
    if (content.size() < (isLong ? 12 : 8) || reference == items.references().end())
        return false;
    const size_t rows = content[2] + size_t{1};
    picture.columns = content[3] + size_t{1};
    picture.width = isLong ? *bigEndian32(content, 4) : *bigEndian16(content, 4);
    picture.height = isLong ? *bigEndian32(content, 8) : *bigEndian16(content, 6);
    if (reference->to.size() != rows * picture.columns)
        return false;
    for (const uint32_t tile : reference->to) {
        const auto* const item = items.item(tile);
        if (!item || item->find(fourCharacterCode("irot")) || !addTile(items, *item, picture))
            return false;
    }
    // No tile may lie outside, nor any place be left.
    const auto fits = [](size_t side, size_t tile, size_t count) {
        return side > tile * (count - 1) && side <= tile * count && (count == 1 || tile % 2 == 0);
    };
    return fits(picture.width, picture.tileWidth, picture.columns) && fits(picture.height, picture.tileHeight, rows);
}

} // namespace

std::optional<HEIFPicture> readHEIFPicture(const ImageFile& file)
{
    const HEIFItems items(file);
    const auto* const item = items.primary() ? items.item(*items.primary()) : nullptr;
    if (!item || item->isProtected || item->isAmbiguous || hasAlpha(items, *items.primary()) ||
        !std::ranges::all_of(item->properties, isHarmless))
        return std::nullopt;
    HEIFPicture picture;
    picture.quarterTurns = quarterTurnsOf(items, *item);
    picture.codes = codesOf(items, *item);
    if (item->type == fourCharacterCode("grid"))
        return addGrid(items, *items.primary(), *item, picture) ? std::optional(picture) : std::nullopt;
    if (!addTile(items, *item, picture))
        return std::nullopt;
    picture.width = picture.tileWidth;
    picture.height = picture.tileHeight;
    return picture;
}

} // namespace platform
