#include "client/MoviePlan.h"

#include "audio/SoundtrackAssembly.h"
#include "client/ClientError.h"
#include "client/Text.h"
#include "video/SilentVideo.h"
#include "video/VideoSize.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

namespace stillora {

namespace {

/// Seconds by which the sound is planned longer than the pictures, so that rounding to samples never leaves it shorter:
/// only a soundtrack that reaches the end is faded and cut there.
constexpr double kOverlapSeconds = 0.25;

/// So much shorter than the music are the pictures that fit it, for the same reason.
constexpr double kFitReserveSeconds = 0.05;

/// The longest piece of silence.
constexpr double kMaxSilenceSeconds = 600;

/// More pieces than any sensible soundtrack; each is opened and joined by the service.
constexpr size_t kMaxSounds = 5000;

double lengthOfAll(const std::vector<SoundFacts>& sounds)
{
    double length = 0;
    for (const SoundFacts& sound : sounds)
        length += sound.length;
    return length;
}

/// Chooses the pieces of music and sets what is heard of them.
bool planMusic(const MovieWish& wish, MoviePlan& plan, platform::NSError* error)
{
    const double end = plan.totalVideoDuration;
    // Where the sounds outlast the pictures none begins while the music fades. What fits is heard, and so is all that
    // the pictures are fitted to; what is to be repeated until the end is, however little of it is left.
    const bool outlasts = !wish.loopsSounds && !wish.fitsMusic && lengthOfAll(wish.sounds) > end;
    const double lastStart = outlasts ? end - kSoundtrackMarginSeconds : end;
    std::vector<bool> isUsed(wish.sounds.size());
    double cursor = 0;
    for (size_t i = 0; !wish.sounds.empty(); ++i) {
        if (!wish.loopsSounds && i == wish.sounds.size())
            break;
        if (cursor > 0 && cursor >= lastStart)
            break;
        if (plan.sounds.size() == kMaxSounds)
            return platform::fail(error, kClientErrorDomain, kClientErrorOutOfRange,
                                  fmt::format("the music is too short to be repeated for {}: that takes more than {} "
                                              "repeats",
                                              secondsText(end), kMaxSounds));
        const size_t source = i % wish.sounds.size();
        const SoundFacts& sound = wish.sounds[source];
        PlannedSound piece{source, sound.selection, sound.length};
        const double needed = end - cursor + kOverlapSeconds;
        // A repeated file is converted once, with its first selection, so only a first one is worth shortening.
        if (!isUsed[source] && piece.length > needed + kOverlapSeconds) {
            const double start = sound.selection ? sound.selection->start : 0;
            piece.selection = SoundFacts::Selection{start, start + needed};
            piece.length = needed;
        }
        isUsed[source] = true;
        cursor += piece.length;
        plan.sounds.push_back(piece);
    }
    for (size_t source = 0; source < isUsed.size(); ++source) {
        if (!isUsed[source])
            plan.leftOut.push_back(source);
    }
    plan.musicEnd = std::min(cursor, end);
    if (!plan.sounds.empty() && cursor >= end)
        plan.fadeStart = end - std::min(end, kLongestFadeSeconds);
    if (cursor < end && wish.fillsSilence) {
        // One file for all pieces, so that hours of silence are converted in minutes; the last is cut anyway.
        const double length = end - cursor + kOverlapSeconds;
        const double pieces = std::ceil(length / kMaxSilenceSeconds);
        for (double i = 0; i < pieces; ++i)
            plan.sounds.push_back({std::nullopt, std::nullopt, length / pieces});
        cursor += length;
    }
    plan.totalSoundtrackDuration = std::min(cursor, end);
    return true;
}

} // namespace

std::optional<MoviePlan> planMovie(const MovieWish& wish, platform::NSError* error)
{
    const auto refuse = [&](ClientErrorCode code, std::string reason) {
        platform::fail(error, kClientErrorDomain, code, std::move(reason));
        return std::nullopt;
    };
    if (wish.photos.empty())
        return refuse(kClientErrorNothingToShow, "there is no photo to show");

    MoviePlan plan;
    const auto photoCount = static_cast<double>(wish.photos.size());
    plan.secondsPerPhoto = wish.secondsPerPhoto;
    if (wish.fitsMusic) {
        const double length = lengthOfAll(wish.sounds) - kFitReserveSeconds;
        plan.secondsPerPhoto = std::floor(length / photoCount * kPictureTimescale) / kPictureTimescale;
    }
    if (!(plan.secondsPerPhoto >= kMinSecondsPerPhoto && plan.secondsPerPhoto <= kMaxSecondsPerPhoto))
        return refuse(kClientErrorOutOfRange,
                      fmt::format("{} a photo is out of range: from {} to {} can be shown",
                                  secondsText(std::max(plan.secondsPerPhoto, 0.0)), secondsText(kMinSecondsPerPhoto),
                                  secondsText(kMaxSecondsPerPhoto)));

    plan.framesPerPhoto = (kFramesBeforeWriting + wish.photos.size() - 1) / wish.photos.size();
    plan.secondsPerFrame = plan.secondsPerPhoto / static_cast<double>(plan.framesPerPhoto);
    plan.totalVideoDuration = plan.secondsPerPhoto * photoCount;
    if (!planMusic(wish, plan, error))
        return std::nullopt;
    return plan;
}

std::optional<double> MoviePlan::soundEnd() const
{
    if (sounds.empty())
        return std::nullopt;
    double length = 0;
    for (const PlannedSound& piece : sounds)
        length += piece.length;
    return std::min(length, totalVideoDuration);
}

platform::CGSize frameSizeForQuality(int64_t quality, const std::vector<PhotoFacts>& photos)
{
    if (const auto named = VideoSize::sizeNamed(quality))
        return *named;
    platform::CGSize smallest = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    for (const PhotoFacts& photo : photos) {
        smallest.width = std::min(smallest.width, photo.size.width);
        smallest.height = std::min(smallest.height, photo.size.height);
    }
    return VideoSize::sizeCoveredBy(smallest);
}

} // namespace stillora
