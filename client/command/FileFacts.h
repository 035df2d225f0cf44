#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/media/AVURLAsset.h"

#include <cstdint>
#include <optional>
#include <string>

namespace stillora {

/// The picture that lies in a sound file.
struct CoverFacts {
    /// "jpeg", "png" and so on; empty for what is no picture that can be read.
    std::string format;
    /// Pixels; zero for what is no picture that can be read.
    platform::CGSize size;
    int64_t bytes = 0;
};

/// What is known of a file that a movie can be made of, or that is a movie.
struct FileFacts {
    enum class Kind { Photo, Sound, Movie };

    std::string path;
    int64_t bytes = 0;
    Kind kind = Kind::Photo;

    /// Of a photo "jpeg", "png" and so on, of a movie "h264", "prores" and so on; empty for a sound.
    std::string pictureFormat;
    /// Upright pixels of a photo or movie.
    platform::CGSize size;
    /// EXIF's, where the photo states one.
    std::optional<int> orientation;
    std::optional<platform::NSColor> averageColor;

    /// Of sounds and movies.
    double seconds = 0;
    /// "mp3", "aac", "pcm_s16le" and so on; empty for a movie without sound.
    std::string soundFormat;
    int sampleRateHz = 0;
    int channels = 0;
    /// What its tags tell of it; null for a photo.
    platform::AVURLAssetPtr asset;
    std::optional<CoverFacts> cover;
};

/// Looks into a file, whatever its name is.
/// @param reason  out: one sentence without the path, if it is no file that a movie could be made of
/// @return nothing then
std::optional<FileFacts> factsOfFile(const std::string& path, std::string& reason);

} // namespace stillora
