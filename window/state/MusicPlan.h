#pragma once

#include <stillora/Movie.h>
#include <stillora/Types.h>

#include "window/state/document/Items.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// How music and pictures compare: a sentence and what a line is drawn from.
struct MusicPlan {
    /// What is heard in a stretch of the movie.
    struct Piece {
        enum class Kind { Music, Silence };

        Kind kind = Kind::Music;
        /// Which sound.
        std::optional<SoundID> sound;
        /// Whether the sound was heard before, as the music is repeated.
        bool isRepeat = false;
        /// From the movie's start.
        Seconds start{0};
        Seconds end{0};
    };

    /// Of the pictures, and so of the movie.
    Seconds length{0};
    Seconds timePerPhoto{0};
    /// Without gaps, from the start to the end of what is heard. Silence where the movie's sound goes on without
    /// music; empty without any.
    std::vector<Piece> pieces;
    /// From here to the end the music gets quieter.
    std::optional<Seconds> fadeStart;
    /// Music that is there and not heard, because the pictures end before.
    Seconds cutOff{0};
    /// Sounds of which nothing is heard.
    std::vector<SoundID> leftOut;
    /// What people read, in their language: one or two sentences. Empty without photos.
    std::string sentence;
    /// Whether "Fit to Music" would change something for the better, and "Loop".
    bool offersFit = false;
    bool offersLoop = false;
    /// Why no movie can be made so, a sentence; empty where one can.
    std::string fault;
};

/// @param wish     what the movie is planned from: photos and sounds that can be used
/// @param soundIDs  of the wish's sounds
/// @param plan     out, optional: the library's plan, if there is one
MusicPlan planMusicFor(const MovieWish& wish, const std::vector<SoundID>& soundIDs,
                       std::optional<stillora::MoviePlan>* plan = nullptr);

} // namespace stillora::window
