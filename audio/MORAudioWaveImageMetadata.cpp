#include "audio/MORAudioWaveImageMetadata.h"

#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSCache.h"
#include "platform/foundation/NSString.h"
#include "platform/media/AVURLAsset.h"
#include "platform/system/NSWorkspace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

using namespace platform;

namespace MORAudioWaveImage {
namespace {

struct Key {
    std::string_view keySpace;
    std::string_view key;
};

// In the order in which they are looked for. Band, conductor and remixer are asked for as the others are, although the
// common list never holds them.
constexpr Key kTitleKeys[] = {
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyTitleDescription},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyTitle},
    {kAVMetadataKeySpaceCommon, kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeySongName},
};
constexpr Key kAlbumKeys[] = {
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyAlbumTitle},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyAlbum},
    {kAVMetadataKeySpaceCommon, kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyAlbum},
};
constexpr Key kArtistKeys[] = {
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyOriginalArtist},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyLeadPerformer},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyBand},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyConductor},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyModifiedBy},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyArtist},
    {kAVMetadataKeySpaceCommon, kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyArtist},
};
constexpr Key kCoverKeys[] = {
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyArtwork},
    {kAVMetadataKeySpaceCommon, kAVMetadataCommonKeyArtwork},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyCoverArt},
};

constexpr size_t kMaxCovers = 1000;
constexpr uint64_t kMaxBytesOfCovers = uint64_t{256} << 20;

const NSURL* URLOf(const AVAsset& asset)
{
    const auto* file = dynamic_cast<const AVURLAsset*>(&asset);
    return file ? &file->URL() : nullptr;
}

/// A value as text; nothing for what is none.
std::optional<std::string> textOf(const AVMetadataItem& item)
{
    if (const std::string* text = item.stringValue())
        return *text;
    if (const double* number = std::get_if<double>(&item.value)) {
        std::array<char, 64> characters{};
        const auto [end, failure] = std::to_chars(characters.data(), characters.data() + characters.size(), *number);
        return std::string(characters.data(), end);
    }
    if (const NSData* data = item.dataValue()) {
        const std::string_view characters(reinterpret_cast<const char*>(data->data()), data->size());
        if (isValidUTF8(characters))
            return std::string(characters);
    }
    return std::nullopt;
}

/// Of each key the first item counts, and an empty text only of the last one.
std::optional<std::string> textForKeys(const AVAsset& asset, std::span<const Key> keys)
{
    const AVMetadataItemList all = asset.commonMetadata();
    for (const Key& each : keys) {
        const auto items = AVMetadataItem::metadataItemsFromArray(all, each.key, each.keySpace);
        if (items.empty())
            continue;
        auto text = textOf(*items.front());
        if (text && (!text->empty() || &each == &keys.back()))
            return text;
    }
    return std::nullopt;
}

std::string localizedText(std::string_view key)
{
    return NSBundle::mainBundle().localizedStringForKey(key, "", "MORAudioWaveStrings");
}

NSCache<std::string, NSImagePtr>& coverCache()
{
    static NSCache<std::string, NSImagePtr> cache(kMaxCovers, kMaxBytesOfCovers);
    return cache;
}

/// Bytes that a picture takes when it is shown; those of its file are fewer, as a rule.
uint64_t costOf(const NSImage& image, const std::optional<NSData>& data)
{
    constexpr double kBytesPerPixel = 4;
    const CGSize size = image.size();
    // Not more than a number holds, whatever the resolution says.
    const double pixels = std::clamp(size.width * size.height * kBytesPerPixel, 0.0, 1e15);
    return static_cast<uint64_t>(pixels) + (data ? data->size() : 0);
}

} // namespace

std::optional<std::string> taggedTitle(const AVAsset& asset)
{
    return textForKeys(asset, kTitleKeys);
}

std::optional<std::string> taggedAlbum(const AVAsset& asset)
{
    return textForKeys(asset, kAlbumKeys);
}

std::optional<std::string> taggedArtist(const AVAsset& asset)
{
    return textForKeys(asset, kArtistKeys);
}

std::string audioTrackTitle(const AVAsset& asset)
{
    if (auto title = taggedTitle(asset))
        return *std::move(title);
    if (const NSURL* url = URLOf(asset))
        return lastPathComponent(url->path());
    return localizedText("UnknownTitle");
}

std::string audioTrackAlbum(const AVAsset& asset)
{
    return taggedAlbum(asset).value_or(localizedText("UnknownAlbum"));
}

std::string audioTrackArtist(const AVAsset& asset)
{
    return taggedArtist(asset).value_or(localizedText("UnknownArtist"));
}

std::optional<NSData> audioTrackCoverData(const AVAsset& asset)
{
    const AVMetadataItemList all = asset.commonMetadata();
    AVMetadataItemList items;
    for (const Key& each : kCoverKeys) {
        items = AVMetadataItem::metadataItemsFromArray(all, each.key, each.keySpace);
        if (!items.empty() && items.front()->hasValue())
            break;
    }
    if (items.empty())
        return std::nullopt;
    const AVMetadataItem& item = *items.front();
    if (const NSData* data = item.dataValue())
        return *data;
    if (const auto* dictionary = std::get_if<AVMetadataItem::Dictionary>(&item.value)) {
        const auto entry = dictionary->find("data");
        const NSData* data = entry != dictionary->end() ? std::get_if<NSData>(&entry->second) : nullptr;
        if (data)
            return *data;
    }
    return std::nullopt;
}

NSImagePtr audioTrackCoverImage(const AVAsset& asset)
{
    const NSURL* const url = URLOf(asset);
    if (url)
        if (NSImagePtr cached = coverCache().objectForKey(url->absoluteString()))
            return cached;

    const auto data = audioTrackCoverData(asset);
    NSImagePtr image = data ? NSImage::imageWithData(*data) : nullptr;
    if (!image && url)
        image = NSWorkspace::sharedWorkspace().iconForFile(url->path());
    if (image && url)
        coverCache().setObject(image, url->absoluteString(), costOf(*image, data));
    return image;
}

} // namespace MORAudioWaveImage
