#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstdint>
#include <optional>

struct AVFormatContext;

namespace platform {

/// Encoder delay and padding that tags tell, in samples.
struct GaplessTag {
    int64_t delay = 0;
    /// Samples between delay and padding; nothing where the tag does not say.
    std::optional<int64_t> length;
    /// Where in the file the frame lies that holds the tag, and to how many samples it decodes.
    int64_t position = -1;
    int64_t frameLength = 0;
};

/// What the frame of information at the start of an MP3 file says of delay, padding and length.
std::optional<GaplessTag> gaplessTagOfMP3(const FileBytes& file);

/// What the packet table of a CAF file says: frames that play, frames before them.
std::optional<GaplessTag> gaplessTagOfCAF(const FileBytes& file);

/// The text tag in which some encoders of MPEG-4 sound tell delay, padding and length, in hexadecimal numbers.
std::optional<GaplessTag> gaplessTagOfMovie(const AVFormatContext& input);

} // namespace platform
