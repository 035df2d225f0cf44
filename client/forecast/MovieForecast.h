#pragma once

#include <stillora/Movie.h>

#include <cstddef>
#include <functional>
#include <optional>

namespace stillora {

/// What a movie will take, before it is made.
struct MovieForecast {
    /// Of the movie's file.
    double bytes = 0;
    /// From the start of the service to the movie in its place, on this machine as busy as it is now.
    Seconds time{0};
    /// How many photos were made into frames to find that out.
    std::size_t sampledPhotos = 0;
};

/// Makes a few frames and a few seconds of the sound by the code that makes movies, and reckons with what they took and
/// what came of them. It takes about two seconds, of small movies less.
///
/// @param goesOn  asked often, on any thread; may be empty
/// @return nothing if it was stopped, or if no frame could be made
std::optional<MovieForecast> forecastMovie(const MovieRequest& request, const std::function<bool()>& goesOn = {});

} // namespace stillora
