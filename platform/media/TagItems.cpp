#include "platform/media/TagItems.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr size_t kMaxItems = 1024;

struct CommonKey {
    std::string_view keySpace;
    std::string_view key;
    std::string_view commonKey;
};

// Band, conductor and remixer (TPE2 to TPE4) stand for nothing common, and the original artist is one who contributed.
constexpr CommonKey kCommonKeys[] = {
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyTitleDescription, kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyAlbumTitle, kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyLeadPerformer, kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyOriginalArtist, "contributor"},
    {kAVMetadataKeySpaceID3, "TCOM", "creator"},
    {kAVMetadataKeySpaceID3, "TIT1", "subject"},
    {kAVMetadataKeySpaceID3, "TIT3", "description"},
    {kAVMetadataKeySpaceID3, "TPUB", "publisher"},
    {kAVMetadataKeySpaceID3, "TCON", "type"},
    {kAVMetadataKeySpaceID3, "TCOP", "copyrights"},
    {kAVMetadataKeySpaceID3, "TEXT", "author"},
    {kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyAttachedPicture, kAVMetadataCommonKeyArtwork},

    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeySongName, kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyAlbum, kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyArtist, kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyCoverArt, kAVMetadataCommonKeyArtwork},
    {kAVMetadataKeySpaceiTunes,
     "\xA9"
     "too",
     "software"},

    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyTitle, kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyAlbum, kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyArtist, kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceQuickTimeMetadata, kAVMetadataQuickTimeMetadataKeyArtwork, kAVMetadataCommonKeyArtwork},
    // Names without an owner, as FFmpeg writes them.
    {kAVMetadataKeySpaceQuickTimeMetadata, "title", kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceQuickTimeMetadata, "album", kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceQuickTimeMetadata, "artist", kAVMetadataCommonKeyArtist},

    {kAVMetadataKeySpaceQuickTimeUserData, "\xA9nam", kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceQuickTimeUserData,
     "\xA9"
     "alb",
     kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceQuickTimeUserData,
     "\xA9"
     "ART",
     kAVMetadataCommonKeyArtist},

    {kAVMetadataKeySpaceVorbisComment, "TITLE", kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceVorbisComment, "ALBUM", kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceVorbisComment, "ARTIST", kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceVorbisComment, "COMPOSER", "creator"},
    {kAVMetadataKeySpaceVorbisComment, "DESCRIPTION", "description"},
    {kAVMetadataKeySpaceVorbisComment, "ORGANIZATION", "publisher"},
    {kAVMetadataKeySpaceVorbisComment, "GENRE", "type"},
    {kAVMetadataKeySpaceVorbisComment, "COPYRIGHT", "copyrights"},
    {kAVMetadataKeySpaceVorbisComment, "METADATA_BLOCK_PICTURE", kAVMetadataCommonKeyArtwork},

    {kAVMetadataKeySpaceRIFFInfo, "INAM", kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceRIFFInfo, "IPRD", kAVMetadataCommonKeyAlbumName},
    {kAVMetadataKeySpaceRIFFInfo, "IART", kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceRIFFInfo, "IGNR", "type"},
    {kAVMetadataKeySpaceRIFFInfo, "ICOP", "copyrights"},

    {kAVMetadataKeySpaceAIFF, "NAME", kAVMetadataCommonKeyTitle},
    {kAVMetadataKeySpaceAIFF, "AUTH", kAVMetadataCommonKeyArtist},
    {kAVMetadataKeySpaceAIFF, "(c) ", "copyrights"},
};

} // namespace

std::string_view commonKeyOf(std::string_view keySpace, std::string_view key)
{
    for (const CommonKey& each : kCommonKeys)
        if (each.keySpace == keySpace && each.key == key)
            return each.commonKey;
    return {};
}

bool TagItems::wants(std::string_view keySpace, std::string_view key) const
{
    return items_.size() < kMaxItems && !commonKeyOf(keySpace, key).empty();
}

void TagItems::addText(std::string_view keySpace, std::string_view key, std::string text)
{
    add(keySpace, key, std::move(text));
}

void TagItems::addNumber(std::string_view keySpace, std::string_view key, double number)
{
    add(keySpace, key, number);
}

void TagItems::addData(std::string_view keySpace, std::string_view key, std::span<const uint8_t> data)
{
    const auto size = static_cast<int64_t>(data.size());
    if (size > bytesLeft_ || !wants(keySpace, key))
        return;
    bytesLeft_ -= size;
    add(keySpace, key, NSData(data.begin(), data.end()));
}

bool TagItems::has(std::string_view keySpace, std::string_view key) const
{
    return std::any_of(items_.begin(), items_.end(),
                       [&](const AVMetadataItemPtr& item) { return item->keySpace == keySpace && item->key == key; });
}

void TagItems::add(std::string_view keySpace, std::string_view key, AVMetadataItem::Value value)
{
    if (!wants(keySpace, key))
        return;
    items_.push_back(std::make_shared<AVMetadataItem>(AVMetadataItem{
        std::string(keySpace), std::string(key), std::string(commonKeyOf(keySpace, key)), std::move(value)}));
}

} // namespace platform
