#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// One entry of an edit list.
struct MovieEdit {
    /// In the movie's scale.
    int64_t duration = 0;
    /// In the track's scale; -1 plays nothing for the duration.
    int64_t mediaTime = 0;
};

/// What of a movie's index the demuxer does not hand on.
struct MovieTrackBoxes {
    int32_t trackID = 0;
    /// "vide", "soun" and so on.
    std::string handler;
    int32_t timescale = 0;
    /// Length of the track's samples together, in its scale.
    int64_t mediaDuration = 0;
    std::vector<MovieEdit> edits;
};

struct MovieBoxes {
    int32_t timescale = 0;
    int64_t duration = 0;
    std::vector<MovieTrackBoxes> tracks;
    /// Samples follow in fragments, which the index does not count.
    bool isFragmented = false;
};

/// Reads the boxes of a QuickTime or MPEG-4 file. Takes little memory, whatever lengths the file claims.
/// @return nothing if the file is no such file or its index is broken
std::optional<MovieBoxes> readMovieBoxes(const ByteSource& file);

} // namespace platform
