#include "client/reader/MovieCheck.h"

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace stillora {

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

std::string textOf(double seconds)
{
    return secondsText(Seconds(seconds));
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
        faults.push_back(localized("it shows {} pictures instead of {}", pictures.samples.size(), expected.frameCount));
    for (size_t i = 0; i < pictures.samples.size(); ++i) {
        const double hold = secondsOf(pictures.samples[i].duration);
        const double start = secondsOf(pictures.samples[i].presentationTime);
        const double expectedStart = expected.secondsPerFrame * static_cast<double>(i);
        if (std::abs(hold - expected.secondsPerFrame) > kPictureTolerance ||
            std::abs(start - expectedStart) > kPictureTolerance) {
            // One is enough to say; the others are off for the same reason.
            faults.push_back(localized("picture {} stands from {} for {} instead of from {} for {}", i + 1,
                                       textOf(start), textOf(hold), textOf(expectedStart),
                                       textOf(expected.secondsPerFrame)));
            break;
        }
    }
    if (pictures.width != static_cast<int>(expected.size.width) ||
        pictures.height != static_cast<int>(expected.size.height))
        faults.push_back(localized("its size is {} x {} instead of {:.0f} x {:.0f}", pictures.width, pictures.height,
                                   expected.size.width, expected.size.height));
    if (pictures.codec != expected.codec)
        faults.push_back(localized("its codec is \"{}\" instead of \"{}\"", printable(pictures.codec), expected.codec));
}

/// Where a picture, or a part of one, ends.
platform::CMTime endOf(const platform::MediaSample& sample)
{
    return CMTimeAdd(sample.presentationTime, sample.duration);
}

/// Whether parts from `at` on make up a picture; `at` then is behind them.
bool isMadeUp(const platform::MediaSample& picture, const std::vector<platform::MediaSample>& parts,
              platform::CMTime longest, size_t& at)
{
    platform::CMTime time = picture.presentationTime;
    do {
        if (at == parts.size() || CMTimeCompare(parts[at].presentationTime, time) != 0 ||
            CMTimeCompare(parts[at].duration, longest) > 0 || parts[at].size != picture.size ||
            parts[at].isKeyFrame != picture.isKeyFrame)
            return false;
        time = endOf(parts[at++]);
    } while (CMTimeCompare(time, endOf(picture)) < 0);
    return CMTimeCompare(time, endOf(picture)) == 0;
}

bool isSameSound(const MediaTrackReport& one, const MediaTrackReport& other)
{
    return CMTimeCompare(one.end, other.end) == 0 &&
           std::equal(one.samples.begin(), one.samples.end(), other.samples.begin(), other.samples.end(),
                      [](const platform::MediaSample& a, const platform::MediaSample& b) {
                          return CMTimeCompare(a.presentationTime, b.presentationTime) == 0 && a.size == b.size;
                      });
}

} // namespace

std::vector<std::string> findFaultsOfRepetition(const platform::MediaReport& repeated,
                                                const platform::MediaReport& movie, platform::CMTime longest)
{
    std::vector<std::string> faults;
    const MediaTrackReport* const parts = trackOfType(repeated, "vide");
    const MediaTrackReport* const pictures = trackOfType(movie, "vide");
    if (!parts || !pictures)
        return {localized("its pictures are gone")};
    size_t at = 0;
    for (size_t i = 0; i < pictures->samples.size(); ++i)
        if (!isMadeUp(pictures->samples[i], parts->samples, longest, at)) {
            faults.push_back(localized("picture {} is not repeated in its time", i + 1));
            break;
        }
    if (faults.empty() && at < parts->samples.size())
        faults.push_back(localized("it shows more pictures than before they were repeated"));
    if (parts->codec != pictures->codec || parts->width != pictures->width || parts->height != pictures->height ||
        CMTimeCompare(repeated.duration, movie.duration) != 0 || repeated.indexFirst != movie.indexFirst)
        faults.push_back(localized("it is of another form than before its pictures were repeated"));
    const MediaTrackReport* const sound = trackOfType(repeated, "soun");
    const MediaTrackReport* const soundBefore = trackOfType(movie, "soun");
    if (!sound != !soundBefore || (sound && !isSameSound(*sound, *soundBefore)))
        faults.push_back(localized("its sound is not as it was before its pictures were repeated"));
    return faults;
}

std::vector<std::string> findFaults(const platform::MediaReport& movie, const ExpectedMovie& expected)
{
    std::vector<std::string> faults;
    if (const MediaTrackReport* pictures = trackOfType(movie, "vide"))
        checkPictures(*pictures, expected, faults);
    else
        faults.push_back(localized("it has no pictures"));

    const MediaTrackReport* sound = trackOfType(movie, "soun");
    if (expected.soundEnd && (!sound || sound->samples.empty()))
        faults.push_back(localized("it has no sound"));
    else if (expected.soundEnd && std::abs(secondsOf(sound->end) - *expected.soundEnd) > soundTolerance(*sound))
        faults.push_back(localized("its sound ends after {} instead of {}", textOf(secondsOf(sound->end)),
                                   textOf(*expected.soundEnd)));
    else if (!expected.soundEnd && sound)
        faults.push_back(localized("it has sound, which was not asked for"));

    if (!movie.indexFirst)
        faults.push_back(localized("its index stands at the end, so that it plays only when it was loaded whole"));
    return faults;
}

} // namespace stillora
