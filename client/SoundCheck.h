#pragma once

#include "client/MoviePlan.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// A sound file as the user gave it; what is left out means the file's own start or end.
struct SoundArgument {
    std::string path;
    /// Seconds from the file's start.
    std::optional<double> start;
    std::optional<double> end;

    friend bool operator==(const SoundArgument&, const SoundArgument&) = default;
};

/// A sound that cannot be heard, and why.
struct BadSound {
    std::string path;
    /// One sentence without the path.
    std::string reason;
    /// Index of the argument.
    size_t argument = 0;
};

struct CheckedSounds {
    /// In the order of the arguments.
    std::vector<SoundFacts> good;
    std::vector<BadSound> bad;
};

/// Measures each file exactly, and makes sure that there is sound in it where it is wanted.
CheckedSounds checkSounds(const std::vector<SoundArgument>& arguments);

} // namespace stillora
