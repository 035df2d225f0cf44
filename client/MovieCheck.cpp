#include "client/MovieCheck.h"

#include "client/Text.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace {

using platform::MediaTrackReport;

/// Two ticks of the picture track's scale: times are cut to whole ticks, so a hold may be one short and its start
/// another.
constexpr double kPictureTolerance = 0.000201;

/// Where sound is cut it may end with a packet of its own, of so many samples.
constexpr double kSoundPackets = 2 * 1024;
constexpr double kSoundTolerance = 0.05;

double soundTolerance(const MediaTrackReport& sound)
{
    return std::max(kSoundTolerance, sound.sampleRateHz > 0 ? kSoundPackets / sound.sampleRateHz : 0);
}

double secondsOf(const platform::CMTime& time)
{
    return time.timescale > 0 ? static_cast<double>(time.value) / time.timescale : 0;
}

const MediaTrackReport* trackOfType(const platform::MediaReport& movie, std::string_view type)
{
    const auto track = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                    [&](const MediaTrackReport& candidate) { return candidate.mediaType == type; });
    return track == movie.tracks.end() ? nullptr : &*track;
}

void checkPictures(const MediaTrackReport& pictures, const ExpectedMovie& expected, std::vector<std::string>& faults)
{
    if (pictures.samples.size() != expected.frameCount)
        faults.push_back(
            fmt::format("it shows {} pictures instead of {}", pictures.samples.size(), expected.frameCount));
    for (size_t i = 0; i < pictures.samples.size(); ++i) {
        const double hold = secondsOf(pictures.samples[i].duration);
        const double start = secondsOf(pictures.samples[i].presentationTime);
        const double expectedStart = expected.secondsPerFrame * static_cast<double>(i);
        if (std::abs(hold - expected.secondsPerFrame) > kPictureTolerance ||
            std::abs(start - expectedStart) > kPictureTolerance) {
            // One is enough to say; the others are off for the same reason.
            faults.push_back(fmt::format("picture {} stands from {} for {} instead of from {} for {}", i + 1,
                                         secondsText(start), secondsText(hold), secondsText(expectedStart),
                                         secondsText(expected.secondsPerFrame)));
            break;
        }
    }
    if (pictures.width != static_cast<int>(expected.size.width) ||
        pictures.height != static_cast<int>(expected.size.height))
        faults.push_back(fmt::format("its size is {} x {} instead of {:.0f} x {:.0f}", pictures.width, pictures.height,
                                     expected.size.width, expected.size.height));
    if (pictures.codec != expected.codec)
        faults.push_back(
            fmt::format("its codec is \"{}\" instead of \"{}\"", printable(pictures.codec), expected.codec));
}

} // namespace

std::vector<std::string> findFaults(const platform::MediaReport& movie, const ExpectedMovie& expected)
{
    std::vector<std::string> faults;
    if (const MediaTrackReport* pictures = trackOfType(movie, "vide"))
        checkPictures(*pictures, expected, faults);
    else
        faults.emplace_back("it has no pictures");

    const MediaTrackReport* sound = trackOfType(movie, "soun");
    if (expected.soundEnd && (!sound || sound->samples.empty()))
        faults.emplace_back("it has no sound");
    else if (expected.soundEnd && std::abs(secondsOf(sound->end) - *expected.soundEnd) > soundTolerance(*sound))
        faults.push_back(fmt::format("its sound ends after {} instead of {}", secondsText(secondsOf(sound->end)),
                                     secondsText(*expected.soundEnd)));
    else if (!expected.soundEnd && sound)
        faults.emplace_back("it has sound, which was not asked for");

    if (!movie.indexFirst)
        faults.emplace_back("its index stands at the end, so that it plays only when it was loaded whole");
    return faults;
}
