#pragma once

#include "platform/foundation/NSData.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

/// @name Key spaces: which kind of tag a key belongs to
/// @{
inline constexpr std::string_view kAVMetadataKeySpaceCommon = "comn";
inline constexpr std::string_view kAVMetadataKeySpaceID3 = "org.id3";
inline constexpr std::string_view kAVMetadataKeySpaceiTunes = "itsk";
inline constexpr std::string_view kAVMetadataKeySpaceQuickTimeMetadata = "mdta";
/// @}

/// @name Keys
/// @{
inline constexpr std::string_view kAVMetadataCommonKeyTitle = "title";
inline constexpr std::string_view kAVMetadataCommonKeyAlbumName = "albumName";
inline constexpr std::string_view kAVMetadataCommonKeyArtist = "artist";
inline constexpr std::string_view kAVMetadataCommonKeyArtwork = "artwork";

inline constexpr std::string_view kAVMetadataID3MetadataKeyTitleDescription = "TIT2";
inline constexpr std::string_view kAVMetadataID3MetadataKeyAlbumTitle = "TALB";
inline constexpr std::string_view kAVMetadataID3MetadataKeyOriginalArtist = "TOPE";
inline constexpr std::string_view kAVMetadataID3MetadataKeyLeadPerformer = "TPE1";
inline constexpr std::string_view kAVMetadataID3MetadataKeyBand = "TPE2";
inline constexpr std::string_view kAVMetadataID3MetadataKeyConductor = "TPE3";
inline constexpr std::string_view kAVMetadataID3MetadataKeyModifiedBy = "TPE4";
inline constexpr std::string_view kAVMetadataID3MetadataKeyAttachedPicture = "APIC";

/// The sign in front is the byte A9, as in the file.
inline constexpr std::string_view kAVMetadataiTunesMetadataKeySongName = "\xA9nam";
inline constexpr std::string_view kAVMetadataiTunesMetadataKeyAlbum = "\xA9"
                                                                      "alb";
inline constexpr std::string_view kAVMetadataiTunesMetadataKeyArtist = "\xA9"
                                                                       "ART";
inline constexpr std::string_view kAVMetadataiTunesMetadataKeyCoverArt = "covr";

inline constexpr std::string_view kAVMetadataQuickTimeMetadataKeyTitle = "com.apple.quicktime.title";
inline constexpr std::string_view kAVMetadataQuickTimeMetadataKeyAlbum = "com.apple.quicktime.album";
inline constexpr std::string_view kAVMetadataQuickTimeMetadataKeyArtist = "com.apple.quicktime.artist";
inline constexpr std::string_view kAVMetadataQuickTimeMetadataKeyArtwork = "com.apple.quicktime.artwork";
/// @}

struct AVMetadataItem;
/// Items are never changed once made: any thread.
using AVMetadataItemPtr = std::shared_ptr<const AVMetadataItem>;
using AVMetadataItemList = std::vector<AVMetadataItemPtr>;

/// One entry of a file's tags.
struct AVMetadataItem {
    using Dictionary = std::map<std::string, std::variant<std::string, NSData>, std::less<>>;
    /// Nothing, text in UTF-8, a number, bytes, or several of them by name.
    using Value = std::variant<std::monostate, std::string, double, NSData, Dictionary>;

    std::string keySpace;
    /// Within the key space, as the file has it.
    std::string key;
    /// Which of the common keys this one stands for; may be empty.
    std::string commonKey;
    Value value;

    bool hasValue() const { return !std::holds_alternative<std::monostate>(value); }
    /// Null if the value is no text.
    const std::string* stringValue() const { return std::get_if<std::string>(&value); }
    /// Null if the value is not of bytes alone.
    const NSData* dataValue() const { return std::get_if<NSData>(&value); }

    /// Those of a key in their order. In the common key space an item's common key counts, else its own key.
    static AVMetadataItemList metadataItemsFromArray(const AVMetadataItemList& items, std::string_view withKey,
                                                     std::string_view keySpace);
};

} // namespace platform
