#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/CMTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// One sample (packet) of a track.
struct MediaSample {
    /// On the movie's time line, edit lists applied.
    CMTime presentationTime;
    CMTime duration;
    uint32_t size = 0;
    bool isKeyFrame = false;
};

struct MediaTrackReport {
    /// "vide" or "soun".
    std::string mediaType;
    /// Four-character code of the sample entry: "avc1", "jpeg", "mp4a" and so on.
    std::string codec;
    int width = 0;
    int height = 0;
    int sampleRateHz = 0;
    int channels = 0;
    /// Where the track ends on the movie's time line.
    CMTime end;
    std::vector<MediaSample> samples;
};

struct MediaReport {
    CMTime duration;
    /// Whether the index stands before the media.
    bool indexFirst = false;
    std::vector<MediaTrackReport> tracks;
};

/// Reads a movie's index and every packet's times; decodes nothing.
/// @return nothing if the file cannot be read as a movie; `error` names the file and why
[[nodiscard]] std::optional<MediaReport> inspectMedia(const NSURL& url, NSError* error = nullptr);

} // namespace platform
