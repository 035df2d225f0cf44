#pragma once

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSGeometry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// @name What a movie is planned from
/// @{

/// A photo that was found good.
struct PhotoFacts {
    std::string path;
    /// Pixels, upright.
    platform::CGSize size;
    int64_t fileSize = 0;
};

/// A sound file that was found good, and the part of it that is wanted.
struct SoundFacts {
    std::string path;
    /// Seconds from the file's start; nothing plays the whole file.
    struct Selection {
        double start = 0;
        double end = 0;
    };
    std::optional<Selection> selection;
    /// Seconds that the selection, or the whole file, plays.
    double length = 0;
    int sampleRateHz = 0;
};

struct MovieWish {
    std::vector<PhotoFacts> photos;
    double secondsPerPhoto = 0;
    std::vector<SoundFacts> sounds;
    /// Repeat the sounds until the pictures end.
    bool loopsSounds = false;
    /// The photos share the length of the sounds; `secondsPerPhoto` is then not looked at.
    bool fitsMusic = false;
    /// Sound reaches the end of the pictures, silent where there is no music.
    bool fillsSilence = true;
};
/// @}

/// A piece of the soundtrack.
struct PlannedSound {
    /// Index of the sound; nothing for silence.
    std::optional<size_t> source;
    /// Seconds from the file's start; nothing plays the whole file.
    std::optional<SoundFacts::Selection> selection;
    /// Seconds that the piece lasts before the soundtrack is cut at the end of the pictures.
    double length = 0;
};

/// A request that the service can fulfil, and what will be seen and heard of it.
struct MoviePlan {
    /// How often each photo stands in the request, one after the other. The service waits for five frames before it
    /// writes the first.
    size_t framesPerPhoto = 1;
    double secondsPerFrame = 0;
    double secondsPerPhoto = 0;
    double totalVideoDuration = 0;

    std::vector<PlannedSound> sounds;
    /// Indexes of the sounds of which nothing is heard, because those before them last until the music fades.
    std::vector<size_t> leftOut;
    /// What is sent as the soundtrack's length: never more than the pictures', since the plan has chosen the pieces and
    /// the service must not choose again.
    double totalSoundtrackDuration = 0;
    /// Seconds until the last music ends or is cut; 0 without music.
    double musicEnd = 0;
    /// From here to the end the music gets quieter; nothing where it ends by itself.
    std::optional<double> fadeStart;

    /// Seconds until the sound ends, silence included; nothing for a movie without sound.
    std::optional<double> soundEnd() const;
    size_t frameCount(size_t photoCount) const { return framesPerPhoto * photoCount; }
};

inline constexpr double kDefaultSecondsPerPhoto = 4;
inline constexpr double kMinSecondsPerPhoto = 0.01;
inline constexpr double kMaxSecondsPerPhoto = 3600;

/// @return nothing if what is wanted cannot be made; `error` says why in one sentence
[[nodiscard]] std::optional<MoviePlan> planMovie(const MovieWish& wish, platform::NSError* error = nullptr);

/// The frame size that the service chooses for a quality: a row of its table, or for any other value the largest row
/// that the smallest photo fills.
platform::CGSize frameSizeForQuality(int64_t quality, const std::vector<PhotoFacts>& photos);

} // namespace stillora
