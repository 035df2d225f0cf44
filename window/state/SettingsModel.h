#pragma once

#include <stillora/Movie.h>

#include <cstdint>
#include <string>
#include <vector>

namespace stillora::window {

/// A size that can be chosen, in words.
struct SizeChoice {
    /// As in `MovieSettings`.
    std::int64_t quality = kAutomaticQuality;
    /// "Full HD", "As large as most photos".
    std::string label;
    /// "1920 × 1080 pixels; for televisions and computers".
    std::string explanation;
};

/// A codec that can be chosen, in words.
struct CodecChoice {
    /// One of `kMovieCodecs`.
    std::string codec;
    /// "Plays everywhere".
    std::string label;
    /// What that means: where it plays, and how large files get.
    std::string explanation;
};

/// All sizes, the usual one first.
std::vector<SizeChoice> sizeChoices();
/// All codecs, the usual one first.
std::vector<CodecChoice> codecChoices();

/// Where a value stands among the choices; those of another program count as the first.
std::size_t indexOfSize(const std::vector<SizeChoice>& choices, std::int64_t quality);
std::size_t indexOfCodec(const std::vector<CodecChoice>& choices, const std::string& codec);

} // namespace stillora::window
