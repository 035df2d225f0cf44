#pragma once

#include <stillora/Picture.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace stillora::window {

/// @name The folder of thumbnails that the programs of a desktop share, by the freedesktop thumbnail specification. Any
/// thread; all of it blocks.
/// @{

/// A photo's file as the cache knows it.
struct ThumbnailSource {
    std::filesystem::path file;
    std::chrono::sys_seconds modified;
};

/// A thumbnail's place: "large/" and the MD5 of the file's address.
std::filesystem::path thumbnailPath(const std::filesystem::path& cache, const std::filesystem::path& file);

/// "file:///", with the bytes that an address may not have as "%20".
std::string addressOfFile(const std::filesystem::path& file);

/// The texts in a PNG file ("tEXt"), by their keys, of two with one key the first; of a file that is cut off, or none
/// of PNG, those before that shows.
std::map<std::string, std::string, std::less<>> textsOfPNG(std::string_view file);

/// The thumbnail of a file, if the cache has one that is as new as the file. It is decoded as any stranger's picture.
std::optional<Pixels> cachedThumbnail(const std::filesystem::path& cache, const ThumbnailSource& source);

/// Keeps a thumbnail for others, in one step. Where that is not possible nothing is kept; files in the cache itself
/// have none.
/// @param pixels  fits into a square of 256 pixels
void keepThumbnail(const std::filesystem::path& cache, const ThumbnailSource& source, const Pixels& pixels);

/// Whether this program found before that there is no thumbnail of the file as it is.
bool isThumbnailImpossible(const std::filesystem::path& cache, const ThumbnailSource& source);
/// Keeps that for later.
void keepThumbnailFailure(const std::filesystem::path& cache, const ThumbnailSource& source);

/// Of the user: $XDG_CACHE_HOME/thumbnails, else ~/.cache/thumbnails.
std::filesystem::path usualThumbnailCache();
/// @}

} // namespace stillora::window
