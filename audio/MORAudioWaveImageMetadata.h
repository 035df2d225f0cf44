#pragma once

#include "platform/foundation/NSData.h"
#include "platform/graphics/NSImage.h"
#include "platform/media/AVAsset.h"

#include <optional>
#include <string>

/// What the tags of an asset tell. The first call for an asset reads its file. Any thread.
namespace MORAudioWaveImage {

/// The title; of a file without one its name, extension included, and "Unknown Title" in the user's language where
/// there is no file.
std::string audioTrackTitle(const platform::AVAsset& asset);

/// The album's name, or "Unknown Album" in the user's language.
std::string audioTrackAlbum(const platform::AVAsset& asset);

/// The original artist, else the artist, or "Unknown Artist" in the user's language.
std::string audioTrackArtist(const platform::AVAsset& asset);

/// @name The same without what stands in for a missing tag
/// @{
std::optional<std::string> taggedTitle(const platform::AVAsset& asset);
std::optional<std::string> taggedAlbum(const platform::AVAsset& asset);
std::optional<std::string> taggedArtist(const platform::AVAsset& asset);
/// @}

/// The cover, else the icon of the file. For a location that was asked for before this is the same picture again, also
/// if the file has changed.
/// @return null where there is neither a cover nor a file
platform::NSImagePtr audioTrackCoverImage(const platform::AVAsset& asset);

/// The bytes of the cover as they lie in the file, which need not be a picture; nothing if there is none.
std::optional<platform::NSData> audioTrackCoverData(const platform::AVAsset& asset);

} // namespace MORAudioWaveImage
