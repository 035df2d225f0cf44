#pragma once

#include <stillora/Export.h>
#include <stillora/Types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace stillora {

/// A sound file as the user gave it; what is left out means the file's own start or end.
struct SoundArgument {
    std::filesystem::path path;
    /// From the file's start.
    std::optional<Seconds> start;
    std::optional<Seconds> end;

    friend bool operator==(const SoundArgument&, const SoundArgument&) = default;
};

/// A part of a sound file, by times from its start.
struct SoundSelection {
    Seconds start{0};
    Seconds end{0};

    friend bool operator==(const SoundSelection&, const SoundSelection&) = default;
};

/// A sound file that was found good, and the part of it that is wanted.
struct SoundFacts {
    /// Defined before this struct: the optional below asks whether it can be made of nothing, which compilers cannot
    /// say of a nested one yet.
    using Selection = SoundSelection;

    std::filesystem::path path;
    /// Nothing plays the whole file.
    std::optional<Selection> selection;
    /// How long the selection, or the whole file, plays.
    Seconds length{0};
    int sampleRateHz = 0;
};

/// What a look into sound files found.
struct CheckedSounds {
    /// In the order of the arguments.
    std::vector<SoundFacts> good;
    std::vector<BadFile> bad;
    bool isCancelled = false;
};

/// Measures each file exactly, and makes sure that there is sound in it where it is wanted.
///
/// @param arguments  files and parts of them
/// @param goesOn     asked a few times a second on this thread; false stops the work. May be empty
STILLORA_EXPORT CheckedSounds checkSounds(const std::vector<SoundArgument>& arguments,
                                          const std::function<bool()>& goesOn = {});

} // namespace stillora
