#pragma once

#include "platform/libav/MovieBoxes.h"

#include <cstdint>
#include <optional>
#include <vector>

struct AVFormatContext;
struct AVStream;

namespace platform {

/// A stretch of a sound track's time line, in samples.
struct SoundSegment {
    /// Where it starts in the decoder's output, counted from the file's first sample; nothing for silence.
    std::optional<int64_t> mediaStart;
    int64_t length = 0;
};

/// What a sound track plays: its decoder's output less encoder delay and padding, as its edits arrange it.
struct SoundTimeline {
    std::vector<SoundSegment> segments;

    /// Samples.
    int64_t length() const;
};

enum class TimelinePrecision {
    /// From the file's index or tags; what has neither is estimated.
    FromIndex,
    /// Files without an index are read once from end to end.
    ByScanning,
};

/// Whether positions in this kind of file are found by counting from its start, because it has no exact index.
bool isFoundByCounting(const AVFormatContext& input);

/// The sound stream that plays, or null: cover pictures and streams without rate or channels do not count.
AVStream* soundStreamOf(AVFormatContext& input, std::optional<int> streamIndex = std::nullopt);

/// The time line of a sound stream. Reads from `input`, which was opened without edit lists; its position is then
/// undefined.
SoundTimeline soundTimelineOf(AVFormatContext& input, const AVStream& stream, const std::optional<MovieBoxes>& boxes,
                              TimelinePrecision precision);

} // namespace platform
