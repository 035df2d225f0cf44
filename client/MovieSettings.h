#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The service's names of the codecs that a movie can have.
inline constexpr std::array<std::string_view, 9> kMovieCodecs{"avc1", "hvc1", "jpeg", "apcn", "ap4h",
                                                              "apch", "apcs", "apco", "ap4x"};

/// How a movie is to be made of its photos and sounds.
struct MovieSettings {
    double secondsPerPhoto = 4;
    /// A height of the service's size table; any other value chooses by the smallest photo.
    int64_t quality = 0;
    /// One of `kMovieCodecs`.
    std::string codec = "avc1";
    bool loopsSounds = false;
    bool fitsMusic = false;
    bool fillsSilence = true;
    bool reducesBorders = false;
    /// Without a fault (`faultOfTitle`); nothing takes the document's name.
    std::optional<std::string> title;

    friend bool operator==(const MovieSettings&, const MovieSettings&) = default;
};
