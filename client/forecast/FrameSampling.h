#pragma once

#include <stillora/Movie.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace stillora {

/// What one photo is worth as frames of a movie.
struct FrameCost {
    /// Of all its frames, coded.
    double bytes = 0;
    /// Of one processor while all are at work: to draw and to code all its frames.
    double seconds = 0;
};

/// Frames of a movie that were made to see what they cost.
struct FrameSample {
    /// For each photo of the request; of those that were not made, by those that are most like them.
    std::vector<FrameCost> costs;
    /// How many photos were made into frames.
    std::size_t madeCount = 0;
};

/// The order in which photos are looked at, so that those of any number from the front on are spread evenly over all,
/// from the plainest to the richest in detail.
std::vector<std::size_t> samplingOrder(const MovieRequest& request);

/// Draws photos as frames and codes them as the movie's will be, by the same code and on all processors, until all are
/// made or the time is up. A photo that was begun is finished. Writes no file.
///
/// @param budget  of each processor's time, after which no photo is begun any more, but for the first
/// @param goesOn  asked before each photo, on any thread; may be empty
/// @return without costs if no frame could be made, or if it was stopped
FrameSample sampleFrames(const MovieRequest& request, Seconds budget, const std::function<bool()>& goesOn = {});

} // namespace stillora
