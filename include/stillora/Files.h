#pragma once

#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Photos.h>
#include <stillora/Types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// What the tags of a sound or movie tell.
struct Tags {
    std::optional<std::string> title;
    std::optional<std::string> artist;
    std::optional<std::string> album;

    /// @name For a display: what stands in for a missing tag is in the user's language
    /// @{
    std::string shownTitle;
    std::string shownArtist;
    std::string shownAlbum;
    /// @}
};

/// The picture that lies in a sound file.
struct Cover {
    /// "jpeg", "png" and so on; empty for what is no picture that can be read.
    std::string format;
    /// Zero for what is no picture that can be read.
    Size size;
    /// As it lies in the file.
    Bytes picture;
};

/// Degrees; north of the equator and east of Greenwich are positive.
struct GeographicPlace {
    double latitude = 0;
    double longitude = 0;

    friend bool operator==(const GeographicPlace&, const GeographicPlace&) = default;
};

/// What is known of a file that a movie can be made of, or that is a movie.
struct FileFacts {
    enum class Kind { Photo, Sound, Movie };

    std::filesystem::path path;
    std::int64_t bytes = 0;
    Kind kind = Kind::Photo;

    /// Of a photo "jpeg", "png" and so on, of a movie "h264", "prores" and so on; empty for a sound.
    std::string pictureFormat;
    /// Of a photo or movie, upright.
    Size size;
    /// EXIF's, where the photo states one.
    std::optional<int> orientation;
    /// Of a photo.
    std::optional<Color> averageColor;

    /// @name Of a photo, by EXIF
    /// @{
    std::optional<DateTaken> taken;
    /// The make, unless the model's name begins with it, and the model; empty where the photo does not tell.
    std::string camera;
    std::optional<GeographicPlace> place;
    /// @}
    /// As in `PhotoFacts`.
    bool isCutOff = false;

    /// Of sounds and movies.
    Seconds length{0};
    /// "mp3", "aac", "pcm_s16le" and so on; empty for a movie without sound.
    std::string soundFormat;
    int sampleRateHz = 0;
    int channels = 0;
    /// Of sounds and movies.
    Tags tags;
    std::optional<Cover> cover;
};

/// Looks into a file, whatever its name is.
/// @return an error for what no movie could be made of; its message begins with the path and ": "
STILLORA_EXPORT Result<FileFacts> factsOfFile(const std::filesystem::path& file);

/// An application of the desktop.
struct Application {
    /// In the user's language.
    std::string name;
    /// By which the desktop knows it, "org.example.Paint.desktop".
    std::string identifier;
    /// Of its desktop entry.
    std::filesystem::path path;
};

/// The other applications that can open a file.
STILLORA_EXPORT std::vector<Application> applicationsFor(const std::filesystem::path& file);

} // namespace stillora
