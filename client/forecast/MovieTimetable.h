#pragma once

#include <stillora/Movie.h>

#include "video/ReusedFrames.h"

#include <vector>

namespace stillora {

/// When the parts of a movie would be done on a machine of a known speed that does nothing else. Seconds from the start
/// of the service; each moment is at or after those above it.
struct MovieTimetable {
    double serviceReady = 0;
    /// What has been written once parts of single files are converted, both growing. Silence has no part in it.
    struct Sound {
        double bytes = 0;
        double moment = 0;
    };
    std::vector<Sound> sounds;
    /// All single files are converted.
    double soundsConverted = 0;
    /// The soundtrack is joined; the same where there is none.
    double soundDone = 0;
    /// Frame i is handed to the writer; the service tells of it.
    std::vector<double> frames;
    /// The last frame is coded.
    double picturesDone = 0;
    /// The movie is in its place.
    double end = 0;
    /// What all of it takes of the processors' time, in seconds of one.
    double work = 0;
};

/// What a photo takes of one processor.
struct FrameWork {
    /// Seconds.
    double draw = 0;
    double code = 0;
};

/// Weighs a photo by what is known of it: format, pixels and bytes, the frame and the codec. Opens no file.
FrameWork workOfPhoto(const PhotoFacts& photo, const MovieRequest& request, Size frame);

/// Reckons by what each photo and each sound takes, and follows frames through the service: those who draw and those
/// who code share the processors, and the latter come first. Opens no file.
/// @param reused  where frames are copied from; null where all are made
MovieTimetable timetableOf(const MovieRequest& request, unsigned processors, const FrameSource* reused = nullptr);

} // namespace stillora
