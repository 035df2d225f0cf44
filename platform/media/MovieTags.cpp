#include "platform/media/MovieTags.h"

#include "platform/foundation/NSData.h"
#include "platform/media/TagText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {
namespace {

/// More keys than any program writes.
constexpr size_t kMaxKeys = 4096;
/// Longer names are none that stand for something common.
constexpr int64_t kMaxKeyBytes = 256;

/// What the first byte of user data's names is.
constexpr uint32_t kCopyrightSign = 0xA9;
/// Language codes below this are those of a Macintosh, whose texts are in its own characters.
constexpr uint64_t kFirstISOLanguage = 0x400;

std::optional<NSData> contentOf(const BoxFile& file, int64_t begin, int64_t end)
{
    if (begin > end || end - begin > TagItems::kMaxBytes)
        return std::nullopt;
    NSData bytes(static_cast<size_t>(end - begin));
    if (!file.read(begin, bytes))
        return std::nullopt;
    return bytes;
}

std::string nameOf(uint32_t type)
{
    return {static_cast<char>(type >> 24), static_cast<char>(type >> 16), static_cast<char>(type >> 8),
            static_cast<char>(type)};
}

/// A "data" box: type of the value, language, value.
void readValue(const BoxFile& file, const Box& box, std::string_view keySpace, std::string_view key, TagItems& items)
{
    enum Type : uint64_t {
        Untyped = 0,
        UTF8 = 1,
        UTF16 = 2,
        SortedUTF8 = 4,
        SortedUTF16 = 5,
        SignedNumber = 21,
        UnsignedNumber = 22,
        Float32 = 23,
        Float64 = 24,
    };
    if (box.size() < 8)
        return;
    const auto content = contentOf(file, box.begin, box.end);
    if (!content)
        return;
    const uint64_t type = bigEndianNumber(std::span(*content).first(4));
    const std::span<const uint8_t> value = std::span(*content).subspan(8);
    const bool isPicture = commonKeyOf(keySpace, key) == kAVMetadataCommonKeyArtwork;
    const bool isNumber = type >= SignedNumber && type <= Float64 && !value.empty() && value.size() <= 8;
    if (isPicture) {
        if (!value.empty())
            items.addData(keySpace, key, value);
    } else if (type == UTF8 || type == SortedUTF8 || type == Untyped) {
        items.addText(keySpace, key, textFromUTF8(value));
    } else if (type == UTF16 || type == SortedUTF16) {
        items.addText(keySpace, key, textFromUTF16BigEndian(value));
    } else if (isNumber && type == Float32 && value.size() == 4) {
        items.addNumber(keySpace, key, std::bit_cast<float>(static_cast<uint32_t>(bigEndianNumber(value))));
    } else if (isNumber && type == Float64 && value.size() == 8) {
        items.addNumber(keySpace, key, std::bit_cast<double>(bigEndianNumber(value)));
    } else if (isNumber && type == UnsignedNumber) {
        items.addNumber(keySpace, key, static_cast<double>(bigEndianNumber(value)));
    } else if (isNumber && type == SignedNumber) {
        const unsigned unused = 64 - 8 * static_cast<unsigned>(value.size());
        const auto number = static_cast<int64_t>(bigEndianNumber(value) << unused) >> unused;
        items.addNumber(keySpace, key, static_cast<double>(number));
    } else {
        items.addData(keySpace, key, value);
    }
}

/// The names that a "keys" box numbers from 1; those of foreign owners are left empty.
std::vector<std::string> keysOf(const BoxFile& file, const Box& box)
{
    std::vector<std::string> keys;
    std::array<uint8_t, 8> header{};
    if (box.size() < 8)
        return keys;
    for (int64_t offset = box.begin + 8; box.end - offset >= 8 && keys.size() < kMaxKeys;) {
        if (!file.read(offset, header))
            break;
        const auto size = static_cast<int64_t>(bigEndianNumber(std::span(header).first(4)));
        if (size < 8 || size > box.end - offset)
            break;
        std::string& key = keys.emplace_back();
        const bool isOurs = bigEndianNumber(std::span(header).last(4)) == fourCharacterCode("mdta");
        if (isOurs && size - 8 <= kMaxKeyBytes) {
            if (const auto name = contentOf(file, offset + 8, offset + size))
                key.assign(name->begin(), name->end());
        }
        offset += size;
    }
    return keys;
}

/// A "meta" box, in which a list of items has its keys in each item's type, or in a list of their own.
void readMeta(const BoxFile& file, const Box& meta, TagItems& items)
{
    // MPEG-4 has put a version in front, QuickTime has not.
    std::array<uint8_t, 8> start{};
    if (meta.size() < 8 || !file.read(meta.begin, start))
        return;
    const bool hasVersion = bigEndianNumber(std::span(start).last(4)) != fourCharacterCode("hdlr");
    std::optional<std::vector<std::string>> keys;
    std::optional<Box> list;
    file.forEachBox(meta.begin + (hasVersion ? 4 : 0), meta.end, [&](const Box& box) {
        if (box.type == fourCharacterCode("keys") && !keys)
            keys = keysOf(file, box);
        if (box.type == fourCharacterCode("ilst") && !list)
            list = box;
    });
    if (!list)
        return;
    file.forEachBox(list->begin, list->end, [&](const Box& item) {
        const std::string_view keySpace = keys ? kAVMetadataKeySpaceQuickTimeMetadata : kAVMetadataKeySpaceiTunes;
        std::string key;
        if (!keys)
            key = nameOf(item.type);
        else if (item.type >= 1 && item.type <= keys->size())
            key = (*keys)[item.type - 1];
        if (!items.wants(keySpace, key))
            return;
        file.forEachBox(item.begin, item.end, [&](const Box& box) {
            if (box.type == fourCharacterCode("data"))
                readValue(file, box, keySpace, key, items);
        });
    });
}

/// The first of a text's languages: length, language, characters.
void readUserText(const BoxFile& file, const Box& box, TagItems& items)
{
    const std::string key = nameOf(box.type);
    std::array<uint8_t, 4> header{};
    if (!items.wants(kAVMetadataKeySpaceQuickTimeUserData, key) || box.size() < 4 || !file.read(box.begin, header))
        return;
    const auto size = static_cast<int64_t>(bigEndianNumber(std::span(header).first(2)));
    if (size > box.size() - 4)
        return;
    const auto text = contentOf(file, box.begin + 4, box.begin + 4 + size);
    if (!text)
        return;
    const bool isMacintosh = bigEndianNumber(std::span(header).last(2)) < kFirstISOLanguage;
    const bool isWide =
        text->size() >= 2 && ((*text)[0] == 0xFE || (*text)[0] == 0xFF) && ((*text)[0] ^ (*text)[1]) == 1;
    std::string value;
    if (!isMacintosh && isWide)
        value = textFromMarkedUTF16(*text);
    else
        // Many programs write UTF-8 with a Macintosh's language.
        value = textFromUTF8Or(textFromMacRoman, *text);
    items.addText(kAVMetadataKeySpaceQuickTimeUserData, key, std::move(value));
}

} // namespace

void readMovieTags(const BoxFile& file, TagItems& items)
{
    std::optional<Box> movie;
    file.forEachBox(0, file.size(), [&](const Box& box) {
        if (box.type == fourCharacterCode("moov") && !movie)
            movie = box;
    });
    if (!movie)
        return;
    file.forEachBox(movie->begin, movie->end, [&](const Box& box) {
        if (box.type == fourCharacterCode("meta"))
            readMeta(file, box, items);
        if (box.type != fourCharacterCode("udta"))
            return;
        file.forEachBox(box.begin, box.end, [&](const Box& inner) {
            if (inner.type == fourCharacterCode("meta"))
                readMeta(file, inner, items);
            else if (inner.type >> 24 == kCopyrightSign)
                readUserText(file, inner, items);
        });
    });
}

} // namespace platform
